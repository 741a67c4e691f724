// SPDX-License-Identifier: LGPL-2.1-or-later
// The stages that image bytes pass through, each beside what it cannot be faster than. Prints a
// line "NAME VALUE" for each figure.
#include "Decoders.h"
#include "Ratio.h"

#include "CLogger.h"
#include "IMBGRtoRGB.h"
#include "IMSideFlip.h"
#include "ImageData.h"
#include "InterleaveHandler.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

namespace {

using bench::Work;

constexpr int kRounds = 31;
constexpr int kWidth = 4960;
constexpr int kLines = 64;
constexpr int kChannels = 3;
constexpr int kStride = kWidth * kChannels;
constexpr int kBytes = kStride * kLines;
constexpr int kRepeats = 20;

void report(const std::string& name, double value)
{
    std::printf("%s %.4g\n", name.c_str(), value);
    std::fflush(stdout);
}

Work repeated(const Work& work)
{
    return [work] {
        for (int i = 0; i < kRepeats; ++i) {
            work();
        }
    };
}

void copyLines()
{
    static std::vector<unsigned char> from(kBytes, 1);
    static std::vector<unsigned char> to(kBytes, 2);
    for (int i = 0; i < kLines; ++i) {
        const std::ptrdiff_t line = std::ptrdiff_t{i} * kStride;
        memcpy(to.data() + line, from.data() + line, kStride);
        asm volatile("" : : "r"(to.data()) : "memory");
    }
}

double besideMemcpy(const Work& work)
{
    return bench::ratioOf(repeated(work), repeated(copyLines), kRounds);
}

void setUp(ImageData& image)
{
    image.SetAttributes(kWidth, 1 << 15, kStride, BGR, FLIP_ON, COMPRESSION_OFF_RAW, 0);
}

void measureManipulations()
{
    ImageData image;
    setUp(image);
    const std::vector<unsigned char> lines(kBytes, 3);
    image.SetRawData(lines.data(), kBytes);
    IMBGRtoRGB swap;
    report("swap-to-memcpy", besideMemcpy([&] { swap.Perform(&image, kBytes); }));
    IMSideFlip flip;
    report("flip-to-memcpy", besideMemcpy([&] { flip.Perform(&image, kBytes); }));
}

// Merging empties the store, which is filled again outside of the measure.
void measureInterleave()
{
    DataBuffer in;
    ImageData image;
    const std::vector<unsigned char> lines(kBytes, 3);
    InterleaveHandler merge;
    const Work fill = [&] {
        setUp(image);
        image.SetInterleaveInfo(kWidth, kLines, 0, 0, 0);
        in.SetRawData(lines.data(), kBytes);
        in.SetProcessedDataSize(kBytes);
    };
    report("interleave-to-memcpy",
           bench::ratioOf(
               fill, [&] { merge.DoInterleave(&in, &image); }, copyLines, kRounds * kRepeats));
}

void measureLog()
{
    constexpr int kCalls = 100000;
    const CLogger logger;
    const Work log = [&logger] {
        for (int i = 0; i < kCalls; ++i) {
            logger.log_debug("%d", i);
        }
    };
    const Work get = [] {
        for (int i = 0; i < kCalls; ++i) {
            const char* volatile value = getenv("ENABLE_SL_LOG");
            static_cast<void>(value);
        }
    };
    report("log-to-getenv", bench::ratioOf(log, get, kRounds));
}

void measureDecoder()
{
    for (const auto& [channels, quality] : {std::pair(3, 75), std::pair(3, 90), std::pair(1, 90)}) {
        const bench::Band band(channels, quality);
        for (const wicket::Kernel* kernel : {wicket::baselineKernel(), wicket::avx2Kernel()}) {
            if (kernel == nullptr) {
                continue;
            }
            bench::ChunkDecoder ours(band, kernel);
            bench::FileDecoder libjpeg(band.file, band.stride());
            report(std::string("decoder-") + (channels == 3 ? "colour" : "grey") + "-q" +
                       std::to_string(quality) + "-" + kernel->name,
                   bench::ratioOf([&] { libjpeg.decode(); }, [&] { ours.decode(); }, kRounds));
        }
    }
}

}  // namespace

int main()
{
    try {
        measureDecoder();
        measureManipulations();
        measureInterleave();
        measureLog();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "stage_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
