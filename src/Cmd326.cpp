// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Cmd326.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

namespace {

constexpr int kHeaderSize = 8;
constexpr int kCommandLength = 32;
constexpr int kLongestCommand = 64;  // room for every version's parameter block

constexpr unsigned char kHeaders[][kHeaderSize] = {
    {0x1B, 0x53, 0x0F, 0x00, 0x00, 0x00, 0x00, 0x00},  // cancel
    {0x1B, 0x53, 0x04, 0x00, 0x00, 0x00, 0x80, 0x00},  // feeder status
    {0x1B, 0x53, 0x03, 0x00, 0x00, 0x00, 0x80, 0x00},  // device properties
    {0x1B, 0x53, 0x05, 0x00, 0x18, 0x00, 0x80, 0x00},  // lock
    {0x1B, 0x53, 0x01, 0x00, 0x18, 0x00, 0x80, 0x00},  // start
    {0x1B, 0x53, 0x06, 0x00, 0x00, 0x00, 0x80, 0x00},  // unlock
    {0x1B, 0x44, 0x04, 0x00, 0x00, 0x00, 0x80, 0x00},  // wake
    {0x1B, 0x53, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00},  // image block
};

void putLittleEndian(unsigned char* at, int value, int size)
{
    for (int i = 0; i < size; ++i) {
        at[i] = static_cast<unsigned char>(static_cast<unsigned>(value) >> (8 * i));
    }
}

std::unique_ptr<unsigned char[]> newBytes(int size)
{
    return std::unique_ptr<unsigned char[]>(
        new (std::nothrow) unsigned char[static_cast<size_t>(size)]());
}

int copyCommand(unsigned char** out, const unsigned char* cmd, int length)
{
    std::unique_ptr<unsigned char[]> copy = newBytes(length);
    if (!copy) {
        return 2;
    }
    memcpy(copy.get(), cmd, static_cast<size_t>(length));
    *out = copy.release();
    return 0;
}

}  // namespace

Cmd326::Cmd326() : iCmdLen(kCommandLength)
{
    iVer = 326;
    iStrip = 9;
    iStripMin = 1;
}

Cmd326::~Cmd326() = default;

int Cmd326::getCommandId()
{
    return ICommand::getCommandId();
}

void Cmd326::setCmdLen(int n)
{
    SL_START();
    SL_TRACE("Setting Command length: %d", n);
    iCmdLen = n;
    SL_END();
}

void Cmd326::appendData(unsigned char** cmd)
{
    const int pixels = getPixelPerLine();
    const int lines = getLines();
    const int offsetX = getScanOffsetX();
    const int offsetY = getScanOffsetY();
    const int dpi = getCurrentDPI();
    const int filter = getFilter();
    const int colorDepth = getColorDepth();
    const int compression = getCompression();
    const int compressionLevel = getCompressionLevel();
    log_debug("Command -> append selected options");

    unsigned char* bytes = *cmd;
    bytes[8] = static_cast<unsigned char>(colorDepth);
    bytes[9] = static_cast<unsigned char>(compression);
    bytes[10] = static_cast<unsigned char>(compressionLevel);
    bytes[11] = static_cast<unsigned char>(filter);
    putLittleEndian(bytes + 12, pixels, 4);
    putLittleEndian(bytes + 16, lines, 4);
    putLittleEndian(bytes + 20, offsetX, 4);
    putLittleEndian(bytes + 24, offsetY, 4);
    putLittleEndian(bytes + 28, dpi, 2);
    putLittleEndian(bytes + 30, dpi, 2);
}

int Cmd326::getCommand(unsigned char** out, int* len)
{
    const int id = getCommandId();
    if (id < COMMAND_CANCEL || id > COMMAND_IMAGE) {
        *len = 0;
        return 2;
    }
    const bool isLong = id == COMMAND_LOCK || id == COMMAND_START;
    int length = isLong ? iCmdLen : kHeaderSize;
    if (isLong) {
        iDataSize = 0;
    }

    *out = nullptr;
    int result = 2;
    const std::unique_ptr<unsigned char[]> buffer = newBytes(std::max(length, kLongestCommand));
    if (buffer && length >= kHeaderSize) {
        memcpy(buffer.get(), kHeaders[id], kHeaderSize);
        if (length > kHeaderSize) {
            unsigned char* bytes = buffer.get();
            appendData(&bytes);
        }
        result = getNpa() == 1 ? addNPA(out, buffer.get(), &length)
                               : copyCommand(out, buffer.get(), length);
    }
    *len = result == 0 ? length : 0;
    SL_TRACE("return now %d", *len);
    return result;
}
