// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Samples.h"

#include "wicket/Huffman.h"

#include <gmock/gmock.h>

#include <memory>
#include <numeric>

using samples::BitWriter;
using samples::Bytes;

namespace {

std::vector<int> symbolsInOrder()
{
    std::vector<int> symbols;
    for (int index = 0; index < HuffCodec::kACSymbols; ++index) {
        symbols.push_back(HuffCodec::RSSymbol(index));
    }
    return symbols;
}

const int kDCCounts[16] = {0, 1, 5, 1, 1, 1, 1, 1, 1};
const int kACCounts[16] = {0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 125};

TEST(HuffCodec, IndicesAndSymbolsAreInverse)
{
    EXPECT_EQ(HuffCodec::CodeIndex(0), 160);
    EXPECT_EQ(HuffCodec::CodeIndex(0xF0), 161);
    EXPECT_EQ(HuffCodec::CodeIndex(0x01), 0);
    EXPECT_EQ(HuffCodec::CodeIndex(0xF1), 15);
    EXPECT_EQ(HuffCodec::CodeIndex(0x0A), 144);
    EXPECT_EQ(HuffCodec::CodeIndex(0xFA), 159);
    for (const int rs : {0x10, 0xE0, 0x0B, 0xFF, 0x101, -1, -15}) {
        EXPECT_EQ(HuffCodec::CodeIndex(rs), -1) << rs;
    }
    for (int index = 0; index < 162; ++index) {
        EXPECT_EQ(HuffCodec::CodeIndex(HuffCodec::RSSymbol(index)), index);
    }
    EXPECT_EQ(HuffCodec::RSSymbol(-1), -1);
    EXPECT_EQ(HuffCodec::RSSymbol(162), -1);
}

TEST(HuffCodec, RefusesTablesThatAreNotWhole)
{
    const auto codec = std::make_unique<HuffCodec>();
    std::vector<int> symbols = symbolsInOrder();
    EXPECT_EQ(codec->Initialize(kDCCounts, kACCounts, symbols.data()), 0);
    EXPECT_TRUE(codec->isReady());

    const int fewDC[16] = {0, 1, 5, 1, 1, 1, 1, 1};
    const int manyDC[16] = {0, 1, 5, 1, 1, 1, 1, 1, 1, 2000000000, 2000000000};
    EXPECT_EQ(codec->Initialize(fewDC, kACCounts, symbols.data()), 257);
    EXPECT_EQ(codec->Initialize(manyDC, kACCounts, symbols.data()), 257);
    EXPECT_FALSE(codec->isReady());

    const int fewAC[16] = {0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 124};
    const int manyAC[16] = {0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 126};
    EXPECT_EQ(codec->Initialize(kDCCounts, fewAC, symbols.data()), 258);
    EXPECT_EQ(codec->Initialize(kDCCounts, manyAC, symbols.data()), 258);

    symbols[7] = symbols[8];
    EXPECT_EQ(codec->Initialize(kDCCounts, kACCounts, symbols.data()), 259);
    symbols[7] = 0x10;
    EXPECT_EQ(codec->Initialize(kDCCounts, kACCounts, symbols.data()), 1);
}

TEST(HuffCodec, CodesAreCanonical)
{
    const auto codec = std::make_unique<HuffCodec>();
    const std::vector<int> symbols = symbolsInOrder();
    ASSERT_EQ(codec->Initialize(kDCCounts, kACCounts, symbols.data()), 0);
    EXPECT_EQ(codec->codeOfAC(0), 0);
    EXPECT_EQ(codec->lengthOfAC(0), 2);
    EXPECT_EQ(codec->codeOfAC(2), 4);
    EXPECT_EQ(codec->lengthOfAC(2), 3);
    EXPECT_EQ(codec->codeOfAC(161), 0xFFFE);
    EXPECT_EQ(codec->lengthOfAC(161), 16);
    int symbol = 0;
    int length = 0;
    EXPECT_EQ(codec->DecodeACSymbol(0xFFFF, &symbol, &length), 261);
    EXPECT_EQ(codec->DecodeACSymbol(0xFFFE, &symbol, &length), 0);
    EXPECT_EQ(symbol, HuffCodec::RSSymbol(161));
    EXPECT_EQ(length, 16);
}

// ITU T.81, Table K.3: 00, 010 .. 110, 1110, ... 111111110.
TEST(HuffCodec, LuminanceDifferencesOfEverySize)
{
    const auto huffman = std::make_unique<Huffman>();
    ASSERT_EQ(huffman->Initialize(1), 0);
    const std::pair<int, int> codes[] = {{0, 2},  {2, 3},  {3, 3},  {4, 3},   {5, 3},   {6, 3},
                                         {14, 4}, {30, 5}, {62, 6}, {126, 7}, {254, 8}, {510, 9}};
    for (int size = 0; size < 12; ++size) {
        const auto [code, bits] = codes[size];
        for (const int rest : {0, (1 << (16 - bits)) - 1}) {
            int symbol = -1;
            int length = -1;
            EXPECT_EQ(
                huffman->codecOf(0).DecodeDCSymbol(code << (16 - bits) | rest, &symbol, &length),
                0);
            EXPECT_EQ(symbol, size);
            EXPECT_EQ(length, bits);
        }
    }
    int symbol = 0;
    int length = 0;
    EXPECT_EQ(huffman->codecOf(0).DecodeDCSymbol(0xFF80, &symbol, &length), 261);
    EXPECT_EQ(huffman->codecOf(1).DecodeDCSymbol(0xFFE0, &symbol, &length), 261);
    EXPECT_EQ(huffman->codecOf(1).DecodeDCSymbol(0xFFDF, &symbol, &length), 0);
    EXPECT_EQ(symbol, 11);
    EXPECT_EQ(length, 11);
}

// Codes beyond eight bits find their prefix only while it is free: the last one with it wins.
TEST(HuffCodec, LongCodesAlone)
{
    const auto codec = std::make_unique<HuffCodec>();
    const std::vector<int> symbols = symbolsInOrder();
    const int nineBits[16] = {0, 0, 0, 0, 0, 0, 0, 0, 12};
    ASSERT_EQ(codec->Initialize(nineBits, kACCounts, symbols.data()), 0);
    for (int code = 0; code < 12; ++code) {
        int symbol = -1;
        int length = -1;
        const bool isLast = code % 2 != 0;
        EXPECT_EQ(codec->DecodeDCSymbol(code << 7, &symbol, &length), isLast ? 0 : 261) << code;
        EXPECT_EQ(symbol, isLast ? code : -1);
        EXPECT_EQ(length, isLast ? 9 : -1);
    }
}

// Codes beyond sixteen bits have no place in the table; those before them decode.
TEST(HuffCodec, OverfullTables)
{
    const auto codec = std::make_unique<HuffCodec>();
    const std::vector<int> symbols = symbolsInOrder();
    const int overfull[16] = {1, 0, 0, 0, 0, 0, 0, 161};
    ASSERT_EQ(codec->Initialize(kDCCounts, overfull, symbols.data()), 0);
    int symbol = -1;
    int length = -1;
    EXPECT_EQ(codec->DecodeACSymbol(0, &symbol, &length), 0);
    EXPECT_EQ(symbol, symbols[0]);
    EXPECT_EQ(length, 1);
    EXPECT_EQ(codec->DecodeACSymbol(0xFFFF, &symbol, &length), 0);
    EXPECT_EQ(symbol, symbols[128]);
    EXPECT_EQ(length, 8);
}

TEST(HuffCodec, IsReadyOnceInitialized)
{
    const auto huffman = std::make_unique<Huffman>();
    EXPECT_EQ(huffman->CodecValid(0), 0);
    ASSERT_EQ(huffman->Initialize(1), 0);
    EXPECT_EQ(huffman->CodecValid(0), 1);
    EXPECT_EQ(huffman->CodecValid(1), 1);
    EXPECT_EQ(huffman->CodecValid(2), 0);
    EXPECT_EQ(huffman->CodecValid(-1), 0);
}

class BitReader : public testing::Test {
protected:
    BitReader() : huffman(std::make_unique<Huffman>()) { huffman->Initialize(1); }

    int value(int size)
    {
        int result = -9999;
        status = huffman->DecodeVLI(size, &result);
        return result;
    }

    std::unique_ptr<Huffman> huffman;
    int status = 0;
};

TEST_F(BitReader, ValuesOfEverySize)
{
    for (int size = 1; size <= 11; ++size) {
        const int top = 1 << (size - 1);
        for (const int expected : {top, 2 * top - 1, -top, 1 - 2 * top}) {
            const Bytes data =
                BitWriter()
                    .bits(static_cast<unsigned>(expected < 0 ? expected - 1 : expected), size)
                    .finish();
            huffman->DecodeData(data.data(), static_cast<int>(data.size()));
            EXPECT_EQ(value(size), expected);
            EXPECT_EQ(status, 0);
            EXPECT_EQ(huffman->DecodeBitPosition(), size);
        }
    }
    EXPECT_EQ(value(0), 0);
}

TEST_F(BitReader, TheByteBehindFFIsSkipped)
{
    const unsigned char data[] = {0xFF, 0x00, 0x12, 0xFF, 0x77, 0x34, 0xFF};
    huffman->DecodeData(data, sizeof data);
    EXPECT_EQ(value(8), 0xFF);
    EXPECT_EQ(value(8), 0x12 - 0xFF);
    EXPECT_EQ(value(8), 0xFF);
    EXPECT_EQ(value(8), 0x34 - 0xFF);
    EXPECT_EQ(value(8), 0xFF);
    EXPECT_EQ(huffman->DecodeBitPosition(), 40);
    value(1);
    EXPECT_EQ(status, 513);

    huffman->Initialize(0);
    huffman->DecodeData(data, sizeof data);
    EXPECT_EQ(value(8), 0xFF);
    EXPECT_EQ(value(8), -0xFF);
}

TEST_F(BitReader, SixteenBitsAreNeededBeforeASymbol)
{
    const unsigned char data[] = {0x00, 0x00, 0x00};
    int result = 0;
    huffman->DecodeData(data, 1);
    EXPECT_EQ(huffman->DecodeDCSymbol(&result, 0), 513);
    EXPECT_EQ(huffman->DecodeBitPosition(), 0);
    huffman->DecodeData(data, 2);
    EXPECT_EQ(huffman->DecodeDCSymbol(&result, 0), 0);
    EXPECT_EQ(huffman->DecodeBitPosition(), 2);
    EXPECT_EQ(huffman->DecodeDCSymbol(&result, 0), 513);
    huffman->DecodeData(data, 3);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(huffman->DecodeDCSymbol(&result, 0), 0) << i;
    }
    EXPECT_EQ(huffman->DecodeDCSymbol(&result, 0), 513);
    for (const int len : {0, -1, -2147483647}) {
        huffman->DecodeData(data, len);
        EXPECT_EQ(huffman->DecodeDCSymbol(&result, 0), 513);
    }
    huffman->DecodeData(nullptr, 100);
    EXPECT_EQ(huffman->DecodeDCSymbol(&result, 0), 513);
}

// A value may need more than the sixteen bits that its code has seen.
TEST_F(BitReader, AValueMayEndBehindTheInput)
{
    const Bytes data = BitWriter().ac(15, 1000, 0).finish(0);
    int run = 0;
    int result = 0;
    for (int len = 2; len < static_cast<int>(data.size()); ++len) {
        huffman->DecodeData(data.data(), len);
        EXPECT_EQ(huffman->DecodeACSymbol(&run, &result, 0), 513) << len;
    }
    huffman->DecodeData(data.data(), static_cast<int>(data.size()));
    EXPECT_EQ(huffman->DecodeACSymbol(&run, &result, 0), 0);
    EXPECT_EQ(run, 15);
    EXPECT_EQ(result, 1000);
}

TEST_F(BitReader, RunsOfEveryKind)
{
    for (const int component : {0, 1, 2}) {
        BitWriter writer;
        for (int run = 0; run < 16; ++run) {
            for (int size = 1; size <= 10; ++size) {
                writer.ac(run, -(1 << size) + 1, component);
            }
        }
        const Bytes data = writer.sixteenZeros(component).endOfBlock(component).finish();
        huffman->DecodeData(data.data(), static_cast<int>(data.size()));
        int run = 0;
        int result = 0;
        for (int i = 0; i < 160; ++i) {
            ASSERT_EQ(huffman->DecodeACSymbol(&run, &result, component), 0);
            EXPECT_EQ(run, i / 10);
            EXPECT_EQ(result, -(2 << i % 10) + 1);
        }
        EXPECT_EQ(huffman->DecodeACSymbol(&run, &result, component), 0);
        EXPECT_EQ(run, 16);
        EXPECT_EQ(huffman->DecodeACSymbol(&run, &result, component), 0);
        EXPECT_EQ(run, -1);
    }
}

}  // namespace
