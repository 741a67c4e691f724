// SPDX-License-Identifier: LGPL-2.1-or-later
// The fast path against the scalar one: the same pixels, counts and statuses on every stream.
#include "Recording.h"
#include "Samples.h"

#include "wicket/Wicket.h"

#include <gmock/gmock.h>

#include <memory>
#include <ostream>
#include <random>

using recording::Result;
using recording::Stream;
using samples::BitWriter;
using samples::Bytes;
using samples::Image;
using samples::Pattern;

namespace wicket {

// In the names of the tests.
void PrintTo(const Kernel* kernel, std::ostream* out)
{
    *out << kernel->name;
}

}  // namespace wicket

namespace {

std::vector<const wicket::Kernel*> kernels()
{
    std::vector<const wicket::Kernel*> there;
    for (const wicket::Kernel* kernel : {wicket::baselineKernel(), wicket::avx2Kernel()}) {
        if (kernel != nullptr) {
            there.push_back(kernel);
        }
    }
    return there;
}

class FastPath : public testing::TestWithParam<const wicket::Kernel*> {
protected:
    FastPath() { makeDecoders(); }

    void makeDecoders()
    {
        scalar = std::make_unique<Wicket>(isStuffed_ ? 1 : 0);
        fast = std::make_unique<Wicket>(isStuffed_ ? 1 : 0);
        scalar->useKernel(nullptr);
        fast->useKernel(GetParam());
    }

    void setQuality(int quality) { quality_ = quality; }

    Stream stream(const Bytes& body, int width, int height, int channels) const
    {
        return {isStuffed_, quality_, width, height, channels, body};
    }

    Result decode(Wicket& decoder, const Bytes& body, int width, int height, int channels) const
    {
        return recording::decode(decoder, stream(body, width, height, channels));
    }

    bool isSame(const Bytes& body, int width, int height, int channels)
    {
        const Result expected = decode(*scalar, body, width, height, channels);
        if (std::ostream* file = recording::file()) {
            recording::write(*file, {stream(body, width, height, channels), expected,
                                     isTaken(body, width, height, channels)});
        }
        return expected == decode(*fast, body, width, height, channels);
    }

    // Whether the fast path itself decodes the stream.
    bool isTaken(const Bytes& body, int width, int height, int channels)
    {
        FastDecoder decoder(scalar->decoder(), isStuffed_);
        Bytes out;
        return recording::decodeFast(decoder, *GetParam(), *scalar,
                                     stream(body, width, height, channels), &out);
    }

    bool isStuffed_ = true;
    int quality_ = 80;
    std::unique_ptr<Wicket> scalar;
    std::unique_ptr<Wicket> fast;
};

TEST_P(FastPath, DecodesPages)
{
    for (const int channels : {1, 3}) {
        for (const int quality : {-1, 1, 10, 35, 50, 75, 90, 95, 100}) {
            setQuality(quality);
            for (const Pattern pattern : samples::kPatterns) {
                for (const int width : {8, 16, 24, 128, 136, 256, 277, 512}) {
                    for (const int lines : {8, 16, 32, 5}) {
                        const Image image = samples::page(pattern, width, lines, channels);
                        const Bytes body = samples::encode(image, quality);
                        const int paddedWidth = (width + 7) / 8 * 8;
                        const int height = (lines + 7) / 8 * 8;
                        ASSERT_TRUE(isSame(body, paddedWidth, height, channels))
                            << channels << " " << quality << " " << static_cast<int>(pattern) << " "
                            << width << " " << lines;
                        ASSERT_TRUE(isTaken(body, paddedWidth, height, channels));
                    }
                }
            }
        }
    }
}

TEST_P(FastPath, AgreesOnEveryEndOfInput)
{
    for (const int channels : {1, 3}) {
        setQuality(80);
        const Bytes body = samples::encode(samples::page(Pattern::photo, 40, 16, channels), 80);
        for (std::size_t size = 0; size <= body.size(); ++size) {
            Bytes cut(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(size));
            ASSERT_TRUE(isSame(cut, 40, 16, channels)) << size;
            cut.push_back(0xFF);
            ASSERT_TRUE(isSame(cut, 40, 16, channels)) << size;
        }
    }
}

TEST_P(FastPath, AgreesOnPlanesThatEndEarly)
{
    setQuality(80);
    for (const int channels : {1, 3}) {
        for (const int size : {0, 1, 2, 100}) {
            ASSERT_TRUE(isSame(Bytes(static_cast<std::size_t>(size)), 4096, 128, channels));
        }
    }
}

TEST_P(FastPath, AgreesOnMutatedStreams)
{
    std::mt19937 random(20260101);
    int count = 0;
    int failed = 0;
    int taken = 0;
    for (const int channels : {1, 3}) {
        for (const int quality : {0, 20, 75, 90, 100}) {
            setQuality(quality);
            for (const Pattern pattern : samples::kPatterns) {
                const Bytes body =
                    samples::encode(samples::page(pattern, 72, 16, channels), quality);
                for (int round = 0; round < 240; ++round, ++count) {
                    Bytes mutated = body;
                    const auto changes = static_cast<unsigned>(1 + random() % 4);
                    for (unsigned i = 0; i < changes; ++i) {
                        unsigned char& byte = mutated[random() % mutated.size()];
                        byte = static_cast<unsigned char>(
                            random() % 2 == 0 ? byte ^ 1U << random() % 8 : random());
                    }
                    if (random() % 8 == 0) {
                        mutated.resize(random() % mutated.size());
                    }
                    ASSERT_TRUE(isSame(mutated, 72, 16, channels)) << count;
                    failed += decode(*fast, mutated, 72, 16, 3).status != 0 ? 1 : 0;
                    taken += round % 8 == 0 && isTaken(mutated, 72, 16, channels) ? 1 : 0;
                }
            }
        }
    }
    EXPECT_GE(count, 12000);
    EXPECT_GT(failed, 500);
    EXPECT_GT(taken, 100);
}

TEST_P(FastPath, AgreesOnRandomBytes)
{
    std::mt19937 random(77);
    for (int round = 0; round < 3000; ++round) {
        setQuality(static_cast<int>(random() % 102) - 1);
        Bytes body(random() % 600);
        for (unsigned char& byte : body) {
            byte = static_cast<unsigned char>(random() & random());
        }
        ASSERT_TRUE(isSame(body, 40, 8, 1)) << round;
        ASSERT_TRUE(isSame(body, 40, 8, 3)) << round;
    }
}

// Coefficients that no picture has: at and beyond the ends of 16 bits.
TEST_P(FastPath, AgreesOnExtremeCoefficients)
{
    std::mt19937 random(78);
    for (const int quality : {0, 1, 5, 25, 50, 100}) {
        setQuality(quality);
        for (int round = 0; round < 400; ++round) {
            BitWriter writer;
            const int channels = round % 2 == 0 ? 1 : 3;
            const int largest = 1 << random() % 11;
            for (int block = 0; block < 5 * channels; ++block) {
                const int component = block % channels;
                const auto value = [&](int limit) {
                    return static_cast<int>(random() % static_cast<unsigned>(2 * limit + 1)) -
                           limit;
                };
                writer.dc(random() % 2 == 0 ? 2 * largest - 1 : value(2 * largest - 1), component);
                const auto density = static_cast<unsigned>(random() % 70);
                unsigned coefficients = 0;
                for (; coefficients < density && coefficients < 63; ++coefficients) {
                    const int v = value(largest - 1);
                    writer.ac(0, v != 0 ? v : 1, component);
                }
                if (coefficients < 63) {
                    writer.endOfBlock(component);
                }
            }
            ASSERT_TRUE(isSame(writer.finish(), 40, 8, channels)) << quality << " " << round;
        }
    }
}

// Lone DC coefficients of every size, and sums that leave 16 and, dequantised, 32 bits.
TEST_P(FastPath, AgreesOnEveryLevel)
{
    for (const int quality : {100, 50, 0}) {
        setQuality(quality);
        for (const int step : {1, 7, 128, 2047, -1, -128, -2047}) {
            BitWriter grey;
            BitWriter colour;
            for (int i = 0; i < 64; ++i) {
                grey.dc(step, 0).endOfBlock(0);
                colour.dc(i % 2 == 0 ? step : -step, 0).endOfBlock(0);
                colour.dc(step, 1).endOfBlock(1).dc(-step, 2).endOfBlock(2);
            }
            ASSERT_TRUE(isSame(grey.finish(), 512, 8, 1)) << step;
            ASSERT_TRUE(isSame(colour.finish(), 512, 8, 3)) << step;
        }
    }
    // A predictor of 2^23 and more, times 255.
    BitWriter large;
    for (int i = 0; i < 6000; ++i) {
        large.dc(2047, 0).endOfBlock(0);
    }
    ASSERT_TRUE(isSame(large.finish(), 8000, 48, 1));
}

// The levels at which a rounded lone DC coefficient leaves 16 bits; chrominance brings red back
// into its range.
TEST_P(FastPath, AgreesOnTheLargestLevels)
{
    setQuality(100);
    for (const int sign : {1, -1}) {
        BitWriter writer;
        for (int i = 0; i < 40; ++i) {
            writer.dc(sign * (i < 15 ? 2047 : i == 15 ? 2048 - 5 : 1), 0).endOfBlock(0);
            writer.dc(0, 1).endOfBlock(1);
            writer.dc(-sign * (i < 12 ? 1950 : 0), 2).endOfBlock(2);
            ASSERT_TRUE(isSame(writer.finish(), (i + 1) * 8, 8, 3)) << sign * i;
        }
    }
}

// Blocks that end with their last coefficient, whatever comes before it.
TEST_P(FastPath, DecodesFullBlocks)
{
    for (int last = 1; last < 64; ++last) {
        for (int run = 0; run < 16 && last + run < 64; ++run) {
            BitWriter writer;
            writer.dc(1, 0).endOfBlock(0);
            for (int block = 0; block < 2; ++block) {
                writer.dc(1, 0);
                for (int k = 1; k < last; ++k) {
                    writer.ac(0, 1, 0);
                }
                writer.ac(run, 1, 0);
                for (int k = last + run + 1; k < 64; ++k) {
                    writer.ac(0, -1, 0);
                }
            }
            const Bytes body = writer.finish();
            ASSERT_TRUE(isSame(body, 24, 8, 1)) << last << " " << run;
            ASSERT_TRUE(isTaken(body, 24, 8, 1)) << last << " " << run;
            for (std::size_t cut = body.size() - 6; cut < body.size(); ++cut) {
                const Bytes part(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(cut));
                ASSERT_TRUE(isSame(part, 24, 8, 1)) << last << " " << run << " " << cut;
            }
        }
    }
}

// Lone DC coefficients whose rounding leaves 16 bits, and those next to them.
TEST_P(FastPath, AgreesOnLevelsAtTheEndsOf16Bits)
{
    setQuality(100);
    for (const int sign : {1, -1}) {
        for (int last = 0; last < 20; ++last) {
            BitWriter grey;
            BitWriter colour;
            for (int i = 0; i < 17; ++i) {
                const int step = sign * (i < 16 ? 2047 : last);
                grey.dc(step, 0).endOfBlock(0);
                for (const int component : {0, 1, 2}) {
                    colour.dc(component == last % 3 ? step : 0, component).endOfBlock(component);
                }
            }
            ASSERT_TRUE(isSame(grey.finish(), 136, 8, 1)) << sign * last;
            ASSERT_TRUE(isSame(colour.finish(), 136, 8, 3)) << sign * last;
        }
    }
}

TEST_P(FastPath, AgreesWithoutStuffing)
{
    isStuffed_ = false;
    makeDecoders();
    for (const int channels : {1, 3}) {
        const Bytes body = samples::encode(samples::page(Pattern::noise, 96, 16, channels), 80);
        ASSERT_TRUE(isSame(body, 96, 16, channels));
        const Bytes plain = samples::encode(samples::page(Pattern::blank, 96, 16, channels), 80);
        ASSERT_TRUE(isSame(plain, 96, 16, channels));
    }
}

// Other processors have the scalar path alone.
#if !defined(__x86_64__) && !defined(__aarch64__)
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(FastPath);
#endif
INSTANTIATE_TEST_SUITE_P(Wicket, FastPath, testing::ValuesIn(kernels()),
                         [](const auto& kernel) { return std::string(kernel.param->name); });

TEST(FastPathChoice, TheBestKernelIsTheDefault)
{
    const std::vector<const wicket::Kernel*> all = kernels();
    EXPECT_EQ(Wicket::bestKernel(), all.empty() ? nullptr : all.back());
}

}  // namespace
