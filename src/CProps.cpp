// SPDX-License-Identifier: LGPL-2.1-or-later
#include "CProps.h"

#include "RecordBytes.h"

#include <algorithm>
#include <new>

namespace {

constexpr int kHeaderSize = 7;

}  // namespace

int CProps::setData(const unsigned char* data, int size)
{
    Sources.clear();
    pdata = RecordBytes::copyPadded(data, size, size);
    iSize = pdata ? size : 0;
    if (!pdata) {
        return 2;
    }

    const int count = getNumOfSources();
    int offset = kHeaderSize;
    for (int i = 0; i < count; ++i) {
        const int resolutions = std::max(
            0, RecordBytes::byteAt(pdata.get(), iSize, offset + CSources::kResolutionCountOffset));
        const int length = CSources::kHeaderSize + CScanRes::kSize * resolutions;
        const auto record =
            RecordBytes::copyPadded(pdata.get() + std::min(offset, iSize), iSize - offset, length);
        std::unique_ptr<CSources> source(new (std::nothrow) CSources);
        if (!record || !source || source->setData(record.get(), length) != 0) {
            return 2;
        }
        try {
            Sources.push_back(std::move(source));
        } catch (const std::bad_alloc&) {
            return 2;
        }
        offset += length;
    }
    return 0;
}

int CProps::getMajor() const
{
    return RecordBytes::byteAt(pdata.get(), iSize, 0);
}

int CProps::getMinor() const
{
    return RecordBytes::byteAt(pdata.get(), iSize, 1);
}

int CProps::getCodeset() const
{
    return RecordBytes::byteAt(pdata.get(), iSize, 2);
}

int CProps::getCompression() const
{
    return RecordBytes::byteAt(pdata.get(), iSize, 3);
}

int CProps::getAlignmentClr() const
{
    return RecordBytes::byteAt(pdata.get(), iSize, 4);
}

int CProps::getAlignmentGry() const
{
    return RecordBytes::byteAt(pdata.get(), iSize, 5);
}

int CProps::getNumOfSources() const
{
    return RecordBytes::byteAt(pdata.get(), iSize, 6);
}

CSources* CProps::getSource(int i) const
{
    const bool isInside = i >= 0 && static_cast<size_t>(i) < Sources.size();
    return isInside ? Sources[static_cast<size_t>(i)].get() : nullptr;
}
