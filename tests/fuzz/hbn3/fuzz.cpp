// SPDX-License-Identifier: LGPL-2.1-or-later
// The frames of the network protocol, whose buffer is compared with a simpler one.
#include "Check.h"
#include "Input.h"
#include "Surroundings.h"

#include "HBN3.h"

#include <cstring>
#include <memory>

namespace {

using fuzz::Bytes;
using fuzz::Input;

constexpr std::size_t kHeader = 9;
constexpr std::size_t kCapacity = 80000;

// The buffer's capacity is never reached byte by byte: a lot of it is taken at once.
constexpr unsigned kManyBytes = 13007;

struct Model {
    Bytes held;
    int payload = 0;

    bool startsWithHeader() const
    {
        return held.size() >= kHeader && std::memcmp(held.data(), "HBN3", 4) == 0;
    }
    int strip()
    {
        if (!startsWithHeader()) {
            return 1;
        }
        unsigned length = 0;
        for (std::size_t i = 5; i < kHeader; ++i) {
            length = length << 8 | held[i];
        }
        payload = length != 0 ? static_cast<int>(length) : payload;
        drop(kHeader);
        return 0;
    }
    void drop(std::size_t count)
    {
        held.erase(held.begin(), held.begin() + static_cast<std::ptrdiff_t>(count));
    }
    int put(const Bytes& bytes)
    {
        if (bytes.empty()) {
            return 3;
        }
        if (bytes.size() > kCapacity - held.size()) {
            return 1;
        }
        held.insert(held.end(), bytes.begin(), bytes.end());
        strip();
        return 0;
    }
    int get(Bytes* out)
    {
        out->clear();
        if (payload < 0) {
            if (!held.empty()) {
                strip();
            }
            return 1;
        }
        const std::size_t piece = std::min(held.size(), static_cast<std::size_t>(payload));
        if (piece < 2) {
            return 3;
        }
        out->assign(held.begin(), held.begin() + static_cast<std::ptrdiff_t>(piece));
        payload -= static_cast<int>(piece);
        drop(piece);
        return held.empty() ? 0 : strip();
    }
};

class Comparison {
public:
    void put(const Bytes& bytes)
    {
        const int size = static_cast<int>(bytes.size());
        FUZZ_CHECK(frames_.setHBNData(bytes.data(), &size) ==
                   (bytes.data() == nullptr ? 3 : model_.put(bytes)));
        FUZZ_CHECK(HBN3::CheckHeader(bytes.data(), size) ==
                   (bytes.size() >= kHeader && std::memcmp(bytes.data(), "HBN3", 4) == 0 ? 0 : 1));
    }
    // As the image is read: a whole frame goes out from where it is, another one by the buffer.
    void pass(const Bytes& frame)
    {
        int size = static_cast<int>(frame.size());
        const unsigned char* payload = frames_.takeInPlace(frame.data(), &size);
        if (payload == nullptr) {
            FUZZ_CHECK(size == static_cast<int>(frame.size()));
            put(frame);
            get();
            return;
        }
        Bytes expected;
        FUZZ_CHECK(model_.held.empty() && model_.put(frame) == 0 && model_.get(&expected) == 0);
        FUZZ_CHECK(expected == Bytes(payload, payload + size) && model_.held.empty());
    }
    void get()
    {
        int size = -1;
        Bytes expected;
        const int result = frames_.getHBNData(room_.get(), &size);
        FUZZ_CHECK(result == model_.get(&expected));
        FUZZ_CHECK(size >= 0 && expected == Bytes(room_.get(), room_.get() + size));
        fuzz::touch(room_.get(), static_cast<std::size_t>(size));
    }
    void strip() { FUZZ_CHECK(frames_.updateSize() == model_.strip()); }
    void forget()
    {
        frames_.destroyBuffer();
        FUZZ_CHECK(frames_.createBuffer() == 0);
        model_ = {};
    }

private:
    HBN3 frames_;
    Model model_;
    std::unique_ptr<unsigned char[]> room_{new unsigned char[kCapacity]};
};

Bytes header(Input& input)
{
    Bytes header = {'H', 'B', 'N', '3', 0, 0, 0};
    header.push_back(static_cast<unsigned char>(input.byte()));
    header.push_back(static_cast<unsigned char>(input.byte()));
    return header;
}

void step(Comparison& both, Input& input)
{
    const unsigned code = input.byte();
    switch (code) {
    case 0xFF:
        both.forget();
        break;
    case 0xFE:
        both.strip();
        break;
    case 0xFD:
        both.put(Bytes(kManyBytes, static_cast<unsigned char>(input.byte())));
        break;
    case 0xFC:
        both.put(header(input));
        break;
    case 0xFB: {
        Bytes frame = header(input);
        const Bytes payload = input.take(frame.back());
        frame.insert(frame.end(), payload.begin(), payload.end());
        both.pass(frame);
        break;
    }
    default:
        if (code < 0x80) {
            both.put(input.take(code));
        } else {
            both.get();
        }
        break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    fuzz::setLogging(input.byte() % 8 == 1);
    Comparison both;
    while (!input.isEmpty()) {
        step(both, input);
    }
    both.get();
    return 0;
}
