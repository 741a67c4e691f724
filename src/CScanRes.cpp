// SPDX-License-Identifier: LGPL-2.1-or-later
#include "CScanRes.h"

#include "RecordBytes.h"

int CScanRes::setData(const unsigned char* data, int size)
{
    pdata = RecordBytes::copyPadded(data, size, kSize);
    return pdata ? 0 : 2;
}

int CScanRes::getHorRes(int* value) const
{
    return RecordBytes::int32At(pdata.get(), pdata ? kSize : 0, 0, value);
}

int CScanRes::getVerRes(int* value) const
{
    return RecordBytes::int32At(pdata.get(), pdata ? kSize : 0, 4, value);
}

int CScanRes::getColorDepth() const
{
    return RecordBytes::byteAt(pdata.get(), pdata ? kSize : 0, 8);
}

int CScanRes::isEqual() const
{
    int horizontal = -1;
    int vertical = -1;
    getHorRes(&horizontal);
    getVerRes(&vertical);
    log_debug("%s", __func__);
    log_debug(" +-- horizontal resolution is %d", horizontal);
    log_debug(" +-- vertical resolution is %d", vertical);
    return horizontal == vertical ? 1 : 0;
}
