// SPDX-License-Identifier: LGPL-2.1-or-later
#include "wicket/Wicket.h"

#include "wicket/WicketTables.h"
#include "wicket/jidctint.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <utility>

namespace {

constexpr int kBlock = 8;
constexpr int kSamples = 64;
constexpr int kDefaultQuality = 80;
constexpr int kQuantFactor = 8;

// Sums and products of a corrupt stream wrap.
int wrappingAdd(int a, int b)
{
    return static_cast<int>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

int wrappingMultiply(int a, int b)
{
    return static_cast<int>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

unsigned char limited(int value)
{
    return static_cast<unsigned char>(std::clamp(value, 0, 255));
}

std::size_t sizeOf(int length)
{
    return static_cast<std::size_t>(std::max(length, 0));
}

void clearPlane(unsigned char* out, int width, int height, std::size_t pixelSize)
{
    const std::size_t size = sizeOf(width) * sizeOf(height) * pixelSize;
    if (out != nullptr && size > 0) {
        memset(out, 0, size);
    }
}

void putGreyBlock(const int* samples, unsigned char* out, std::size_t width)
{
    for (std::size_t row = 0; row < kBlock; ++row) {
        for (std::size_t col = 0; col < kBlock; ++col) {
            const int s = samples[row * kBlock + col];
            const int byte = s >= 127 ? 255 : s <= -128 ? 0 : s + 128;
            out[row * width + col] = static_cast<unsigned char>(byte);
        }
    }
}

}  // namespace

Wicket::Wicket(int byteStuffing) : m_ByteStuffing(byteStuffing), m_pKernel(bestKernel())
{
    QualityFactor(kDefaultQuality);
    iStatus = m_Huff.Initialize(byteStuffing);
    m_pFast = std::make_unique<FastDecoder>(m_Huff, byteStuffing != 0);
}

int Wicket::QualityFactor(int luminance, int chrominance)
{
    ScaleTable(wicket::aiDefaultLuminanceQuantTable, m_aiLuminanceQuantTable,
               m_aiLuminanceDequantTable, luminance, kQuantFactor);
    ScaleTable(wicket::aiDefaultChrominanceQuantTable, m_aiChrominanceQuantTable,
               m_aiChrominanceDequantTable, chrominance, kQuantFactor);
    return 0;
}

void Wicket::ScaleTable(const int* base, int* quant, int* dequant, int q, int factor)
{
    // Qualities below 1 are coarser than 1, unlike elsewhere.
    const std::int64_t scale = q <= 0 ? 10000 : q >= 50 ? 200 - 2 * std::int64_t{q} : 5000 / q;
    for (int i = 0; i < kSamples; ++i) {
        const std::int64_t wanted = (base[i] * scale + 50) / 100;
        const int entry = wanted >= 256 ? 255 : wanted < 1 ? 1 : static_cast<int>(wanted);
        quant[i] = entry * factor;
        dequant[i] = entry;
    }
}

const int* Wicket::quantTable(int component) const
{
    return component == 0 ? m_aiLuminanceQuantTable : m_aiChrominanceQuantTable;
}

const int* Wicket::dequantTable(int component) const
{
    return component == 0 ? m_aiLuminanceDequantTable : m_aiChrominanceDequantTable;
}

int Wicket::checkPlane(int width, int height, int unstuffedUnit) const
{
    if (iStatus != 0) {
        return iStatus;
    }
    if (width % (m_ByteStuffing == 0 ? unstuffedUnit : kBlock) != 0) {
        return kBadWidth;
    }
    return height % kBlock != 0 ? kBadHeight : 0;
}

// Coefficients beyond those decoded are zero, in natural order.
int Wicket::decodeCoefficients(int* coefficients, int component)
{
    std::fill(coefficients, coefficients + kSamples, 0);
    int diff = 0;
    int status = m_Huff.DecodeDCSymbol(&diff, component);
    if (status != 0) {
        return status;
    }
    aiPreviousDC[component] = wrappingAdd(aiPreviousDC[component], diff);
    coefficients[0] = aiPreviousDC[component];

    int remaining = kSamples - 1;
    while (remaining > 0) {
        int run = 0;
        int value = 0;
        status = m_Huff.DecodeACSymbol(&run, &value, component);
        if (status != 0) {
            return status;
        }
        if (run < 0) {
            return 0;
        }
        remaining -= run;
        const bool hasValue = run < 16;
        if (remaining < (hasValue ? 1 : 0)) {
            return kTooManyCoefficients;
        }
        if (hasValue) {
            coefficients[wicket::aiZigZagSequence[kSamples - remaining]] = value;
            --remaining;
        }
    }
    return 0;
}

int Wicket::DecompressBlock(int* samples, int component)
{
    int coefficients[kSamples];
    const int status = decodeCoefficients(coefficients, component);
    if (status != 0) {
        return status;
    }
    DequantizeBlock(coefficients, component);
    jpeg_idct(coefficients, samples);
    return 0;
}

int Wicket::DequantizeBlock(int* block, int component) const
{
    const int* table = dequantTable(component);
    for (int i = 0; i < kSamples; ++i) {
        block[i] = wrappingMultiply(block[i], table[i]);
    }
    return 0;
}

void Wicket::Transpose(int* block)
{
    for (int row = 0; row < kBlock; ++row) {
        for (int col = 0; col < row; ++col) {
            std::swap(block[row * kBlock + col], block[col * kBlock + row]);
        }
    }
}

int Wicket::YCbCrToRGB(const int* blocks, unsigned char* out, int width)
{
    for (int i = 0; i < kSamples; ++i) {
        const int y = wrappingMultiply(wrappingAdd(blocks[i], 128), 1 << m_iRGBShiftBits);
        const int cb = blocks[kSamples + i];
        const int cr = blocks[2 * kSamples + i];
        // 128 is not half of what the shift drops; the results depend on it.
        const auto channel = [&](int chroma) {
            return limited(wrappingAdd(wrappingAdd(y, chroma), m_iRoundAdder) >> m_iRGBShiftBits);
        };
        const std::size_t row = static_cast<std::size_t>(i) / kBlock;
        const std::size_t col = static_cast<std::size_t>(i) % kBlock;
        unsigned char* pixel = out + (row * sizeOf(width) + col) * 3;
        pixel[0] = channel(wrappingMultiply(cr, 1436));
        pixel[1] = channel(wrappingAdd(wrappingMultiply(cb, -352), wrappingMultiply(cr, -731)));
        pixel[2] = channel(wrappingMultiply(cb, 1815));
    }
    m_iNumBytesGenerated = wrappingAdd(m_iNumBytesGenerated, 3 * kSamples);
    return 0;
}

const wicket::Kernel* Wicket::bestKernel()
{
    const wicket::Kernel* wide = wicket::avx2Kernel();
    return wide != nullptr ? wide : wicket::baselineKernel();
}

bool Wicket::decodeFast(const unsigned char* data, int len, const FastDecoder::Plane& plane,
                        int* bitsUsed)
{
    std::int64_t bits = 0;
    if (m_pKernel == nullptr ||
        !m_pFast->decode(*m_pKernel, data, len, plane, m_aiLuminanceDequantTable,
                         m_aiChrominanceDequantTable, &bits)) {
        return false;
    }
    const std::size_t size =
        plane.width * plane.height * static_cast<std::size_t>(plane.components);
    m_iNumBytesGenerated = static_cast<int>(size);
    *bitsUsed = static_cast<int>(bits);
    return true;
}

void Wicket::decodeGrey(unsigned char* out, int width, int height)
{
    aiPreviousDC[0] = 0;
    int samples[kSamples] = {};
    for (std::size_t y = 0; y < sizeOf(height); y += kBlock) {
        for (std::size_t x = 0; x < sizeOf(width); x += kBlock) {
            DecompressBlock(samples, 0);
            putGreyBlock(samples, out + y * sizeOf(width) + x, sizeOf(width));
            m_iNumBytesGenerated = wrappingAdd(m_iNumBytesGenerated, kSamples);
        }
    }
}

int Wicket::decodeColour(unsigned char* out, int width, int height)
{
    std::fill(std::begin(aiPreviousDC), std::end(aiPreviousDC), 0);
    const std::size_t line = sizeOf(width) * 3;
    clearPlane(out, width, height, 3);
    for (std::size_t y = 0; y < sizeOf(height); y += kBlock) {
        for (std::size_t x = 0; x < sizeOf(width); x += kBlock) {
            int blocks[3 * kSamples];
            for (int component = 0; component < 3; ++component) {
                const int status = DecompressBlock(blocks + component * kSamples, component);
                if (status != 0) {
                    return status;
                }
            }
            YCbCrToRGB(blocks, out + y * line + x * 3, width);
        }
    }
    return 0;
}

int Wicket::DecompressOnePlane(const unsigned char* data, int len, unsigned char* out, int width,
                               int height, int* bytesGen, int* bytesConverted)
{
    m_iNumBytesGenerated = 0;
    const int status = checkPlane(width, height, 48);
    if (status != 0) {
        clearPlane(out, width, height, 1);
        return status;
    }
    int bits = 0;
    if (!decodeFast(data, len, {out, sizeOf(width), sizeOf(height), 1}, &bits)) {
        m_Huff.DecodeData(data, len);
        decodeGrey(out, width, height);
        bits = m_Huff.DecodeBitPosition();
    }
    *bytesGen = m_iNumBytesGenerated;
    *bytesConverted = wrappingMultiply(wrappingAdd(bits, 511) / 64, 512);
    return 0;
}

int Wicket::DecompressThreePlanes(const unsigned char* data, int len, unsigned char* out, int width,
                                  int height, int* bytesGen, int* bytesConverted)
{
    m_iNumBytesGenerated = 0;
    int status = checkPlane(width, height, 16);
    if (status != 0) {
        clearPlane(out, width, height, 3);
        return status;
    }
    int bits = 0;
    if (!decodeFast(data, len, {out, sizeOf(width), sizeOf(height), 3}, &bits)) {
        m_Huff.DecodeData(data, len);
        status = decodeColour(out, width, height);
        if (status != 0) {
            return status;
        }
        bits = m_Huff.DecodeBitPosition();
    }
    *bytesGen = m_iNumBytesGenerated;
    *bytesConverted = wrappingMultiply(wrappingAdd(bits, 511) / 512, 64);
    return 0;
}
