// SPDX-License-Identifier: LGPL-2.1-or-later
#include "CSources.h"

#include "RecordBytes.h"

#include <new>

int CSources::setData(const unsigned char* data, int size)
{
    log_debug("set data for csources now %d", size);
    ScanRes.clear();
    pdata = RecordBytes::copyPadded(data, size, size);
    iSize = pdata ? size : 0;
    if (!pdata) {
        return 2;
    }
    log_debug(" %2X getType", static_cast<unsigned>(getType()));
    log_debug(" %2X getBarId", static_cast<unsigned>(getBarId()));

    const int count = getNumOfRes();
    for (int i = 0; i < count; ++i) {
        const int offset = kHeaderSize + CScanRes::kSize * i;
        std::unique_ptr<CScanRes> resolution(new (std::nothrow) CScanRes);
        log_debug("set data from scan res now");
        if (!resolution || resolution->setData(pdata.get() + offset, iSize - offset) != 0) {
            return 2;
        }
        try {
            ScanRes.push_back(std::move(resolution));
        } catch (const std::bad_alloc&) {
            return 2;
        }
    }
    return 0;
}

int CSources::getType() const
{
    return RecordBytes::byteAt(pdata.get(), iSize, 0);
}

int CSources::getBarId() const
{
    return RecordBytes::byteAt(pdata.get(), iSize, 1);
}

int CSources::getNumOfRes() const
{
    return RecordBytes::byteAt(pdata.get(), iSize, kResolutionCountOffset);
}

int CSources::getOrgOffset(int* value) const
{
    return RecordBytes::int32At(pdata.get(), iSize, 2, value);
}

int CSources::getWidth(int* value) const
{
    return RecordBytes::int32At(pdata.get(), iSize, 6, value);
}

int CSources::getHeight(int* value) const
{
    return RecordBytes::int32At(pdata.get(), iSize, 10, value);
}

CScanRes* CSources::getScanRes(int i) const
{
    const bool isInside = i >= 0 && static_cast<size_t>(i) < ScanRes.size();
    return isInside ? ScanRes[static_cast<size_t>(i)].get() : nullptr;
}
