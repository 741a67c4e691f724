// SPDX-License-Identifier: LGPL-2.1-or-later
// Decodes recorded streams again, on whatever processor this is:
//   wicket_replay RECORDING KERNEL
// The scalar path and the fast path with the kernel of that name, which has to be there, must
// give what was recorded; and the vector code must decode by itself what it did by then.
#include "Recording.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <memory>

using recording::Bytes;
using recording::Entry;
using recording::Result;
using recording::Stream;

namespace {

// A recording with less than that is not one of the tests' streams.
constexpr int kFewestStreams = 10000;
constexpr int kFewestTaken = 3000;

constexpr int kMostReports = 20;

// For streams with or without stuffing.
class Decoders {
public:
    Decoders(bool isStuffed, const wicket::Kernel& kernel)
        : vector_(kernel),
          scalar_(isStuffed ? 1 : 0),
          forced_(isStuffed ? 1 : 0),
          alone_(scalar_.decoder(), isStuffed)
    {
        scalar_.useKernel(nullptr);
        forced_.useKernel(&kernel);
    }

    // What differs; null: nothing.
    const char* check(const Entry& entry, Bytes* out)
    {
        const Result plain = recording::decode(scalar_, entry.stream);
        *out = plain.out;
        if (!(plain == entry.result)) {
            return "scalar";
        }
        const Result fast = recording::decode(forced_, entry.stream);
        *out = fast.out;
        if (!(fast == entry.result)) {
            return "fast";
        }
        if (recording::decodeFast(alone_, vector_, scalar_, entry.stream, out) != entry.isTaken) {
            return entry.isTaken ? "given up" : "not given up";
        }
        return entry.isTaken && *out != entry.result.out ? "vector" : nullptr;
    }

private:
    const wicket::Kernel& vector_;
    Wicket scalar_;
    Wicket forced_;
    FastDecoder alone_;
};

void report(int number, const char* what, const Entry& entry, const Bytes& out)
{
    const Stream& stream = entry.stream;
    const Bytes& expected = entry.result.out;
    const auto end =
        out.begin() + static_cast<std::ptrdiff_t>(std::min(out.size(), expected.size()));
    const auto at = std::mismatch(out.begin(), end, expected.begin()).first - out.begin();
    printf("stream %d (%dx%d, %d channels, quality %d, %zu bytes): %s differs, first at byte %td\n",
           number, stream.width, stream.height, stream.channels, stream.quality, stream.body.size(),
           what, at);
}

int replay(const char* path, const wicket::Kernel& kernel)
{
    std::ifstream in(path, std::ios::binary);
    const auto stuffed = std::make_unique<Decoders>(true, kernel);
    const auto plain = std::make_unique<Decoders>(false, kernel);
    int streams = 0;
    int taken = 0;
    int different = 0;
    Entry entry;
    Bytes out;
    for (; recording::read(in, &entry); ++streams) {
        Decoders& decoders = entry.stream.isStuffed ? *stuffed : *plain;
        const char* what = decoders.check(entry, &out);
        taken += entry.isTaken ? 1 : 0;
        if (what != nullptr && ++different <= kMostReports) {
            report(streams, what, entry, out);
        }
    }
    printf("%s: %d streams, %d of them for the vector code, %d differ\n", kernel.name, streams,
           taken, different);
    if (streams < kFewestStreams || taken < kFewestTaken) {
        printf("%s: too few streams; the recording is made by the native wicket.record\n", path);
        return 1;
    }
    return different == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: wicket_replay RECORDING KERNEL\n");
        return 2;
    }
    const wicket::Kernel* kernel = wicket::baselineKernel();
    if (kernel == nullptr || strcmp(kernel->name, argv[2]) != 0) {
        fprintf(stderr, "%s: the kernel is %s\n", argv[2],
                kernel != nullptr ? kernel->name : "none");
        return 1;
    }
    try {
        return replay(argv[1], *kernel);
    } catch (const std::exception& failure) {
        fprintf(stderr, "%s: %s\n", argv[1], failure.what());
        return 1;
    }
}
