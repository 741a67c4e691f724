// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ICommand.h"

#include "Cmd326.h"
#include "Cmd401.h"
#include "Cmd402.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

constexpr unsigned char kBlockMagic[3] = {0x1B, 0x53, 0x02};
constexpr int kSmallestBlockHeader = 6;  // up to and with the length field

constexpr unsigned char kNpaWord[4] = {0xAA, 0xBB, 0xCC, 0xDD};
constexpr int kNpaTrailerWords = 2;
constexpr int kNpaHeaderSize = 12;
constexpr int kNpaOverhead = kNpaHeaderSize + kNpaTrailerWords * 4;
constexpr int kNpaLengthBase = 3;  // bytes that the length field does not count
constexpr int kNpaLongestCommand = 0x10000 - kNpaOverhead;  // what two bytes can count

bool startsLikeBlock(const unsigned char* data, int size)
{
    const size_t n = std::min(static_cast<size_t>(size), sizeof kBlockMagic);
    return n > 0 && memcmp(data, kBlockMagic, n) == 0;
}

}  // namespace

ICommand::~ICommand() = default;

ICommand* ICommand::createCmdInstance(int version)
{
    switch (version) {
    case 401:
        return new (std::nothrow) Cmd401;
    case 402:
        return new (std::nothrow) Cmd402;
    default:
        return new (std::nothrow) Cmd326;
    }
}

int ICommand::setConfigReader(ConfigReader* store)
{
    log_debug("%s -> set config reader", __func__);
    if (store == nullptr) {
        return 2;
    }
    pConfigReader = store;
    return 0;
}

void ICommand::setCommandId(int id)
{
    log_debug("%s -> set command id = %d", __func__, id);
    iCmd = id;
}

void ICommand::setNpa(int npa)
{
    log_debug("%s -> set npa = %d", __func__, npa);
    iNPA = npa > 0 ? 1 : 0;
}

void ICommand::setVersion(int version)
{
    log_debug("%s -> set version = %d", __func__, version);
    iVer = version;
}

void ICommand::setStripSize(int size)
{
    log_debug("%s -> set strip size = %d", __func__, size);
    iStrip = size;
}

void ICommand::setStripMin(int min)
{
    log_debug("%s -> set strip min = %d", __func__, min);
    iStripMin = min;
}

int ICommand::getNpa()
{
    log_debug("%s -> get npa = %d", __func__, iNPA);
    return iNPA;
}

int ICommand::getVersion()
{
    log_debug("%s -> get version = %d", __func__, iVer);
    return iVer;
}

int ICommand::getCommandId()
{
    log_debug("%s -> get command id", __func__);
    return iCmd;
}

int ICommand::storeValue(const char* key)
{
    return pConfigReader != nullptr ? pConfigReader->GetIntOption(key) : 0;
}

int ICommand::getPixelPerLine()
{
    const int value = storeValue("PIXELS_PER_LINE");
    log_debug("%s -> Pixel Per Line = %d", __func__, value);
    return value;
}

int ICommand::getLines()
{
    const int value = storeValue("LINES");
    log_debug("%s -> Lines = %d", __func__, value);
    return value;
}

int ICommand::getScanOffsetX()
{
    const int value = storeValue("SCANOFFSETX");
    log_debug("%s -> Scan Offset X = %d", __func__, value);
    return value;
}

int ICommand::getScanOffsetY()
{
    const int value = storeValue("SCANOFFSETY");
    log_debug("%s -> Scan Offset Y = %d", __func__, value);
    return value;
}

int ICommand::getCurrentDPI()
{
    const int value = storeValue("CURRENTDPI");
    log_debug("%s -> Current DPI = %d", __func__, value);
    return value;
}

int ICommand::getCompression()
{
    const int value = storeValue("COMPRESSION");
    log_debug("Command -> Compression = %d", value);
    return value;
}

int ICommand::getCompressionLevel()
{
    const int value = storeValue("COMPRESSIONLEVEL");
    log_debug("Command -> Compression Level = %d", value);
    return value;
}

int ICommand::getFilter()
{
    const int value = storeValue("PREVIEW") != 0 ? 4 : 3;
    log_debug("%s -> Filter = %d", __func__, value);
    return value;
}

int ICommand::getColorDepth()
{
    const int value = storeValue("COLORDEPTH") == 3 ? 3 : 2;
    log_debug("%s -> Color Depth = = %d", __func__, value);
    return value;
}

int ICommand::getSource()
{
    const int source = storeValue("SCAN_SOURCE");
    SL_TRACE("source ========================================== %d", source);
    int code = 1;
    if (source == 2) {
        code = 4;
    } else if (source == 3) {
        code = 0;
    }
    SL_TRACE("source: %d", code);
    return code;
}

int ICommand::addNPA(unsigned char** out, const unsigned char* cmd, int* len)
{
    log_debug("%s -> adding npa to command", __func__);
    *out = nullptr;
    if (*len < 0 || *len > kNpaLongestCommand) {
        return 2;
    }
    const int unpadded = *len + kNpaOverhead;
    const int pad = (4 - unpadded % 4) % 4;
    const int total = unpadded + pad;

    unsigned char* frame = new (std::nothrow) unsigned char[static_cast<size_t>(total)]();
    *out = frame;
    if (frame == nullptr) {
        return 2;
    }
    const int counted = total - kNpaLengthBase;
    frame[0] = 0xA5;
    frame[1] = static_cast<unsigned char>(counted >> 8);
    frame[2] = static_cast<unsigned char>(counted);
    frame[3] = 0x10;
    frame[4] = 0x01;
    frame[5] = 0x83;
    memcpy(frame + 6, kNpaWord, sizeof kNpaWord);
    frame[10] = kNpaTrailerWords;
    frame[11] = static_cast<unsigned char>(pad);

    // The padding stands between header and command, so the trailer ends the frame.
    unsigned char* end = frame + kNpaHeaderSize + pad;
    memcpy(end, cmd, static_cast<size_t>(*len));
    end += *len;
    for (int i = 0; i < kNpaTrailerWords; ++i, end += sizeof kNpaWord) {
        memcpy(end, kNpaWord, sizeof kNpaWord);
    }
    *len = total;
    return 0;
}

int ICommand::encode(int id, std::unique_ptr<unsigned char[]>* bytes, int* len)
{
    setCommandId(id);
    unsigned char* encoded = nullptr;
    const int result = getCommand(&encoded, len);
    bytes->reset(encoded);
    return result;
}

bool ICommand::isAnswered(int id)
{
    return id >= COMMAND_FEEDER_STATUS && id <= COMMAND_WAKE;
}

int ICommand::blockSize(const unsigned char* header) const
{
    return std::max(0, header[5] * 256 + header[4] - iStripMin);
}

int ICommand::getPendingBlockSize(DataBuffer* held) const
{
    const int size = held->GetRawDataSize();
    const bool isHeader = iDataSize == 0 && size >= std::max(iStrip, kSmallestBlockHeader) &&
                          startsLikeBlock(held->GetRawDataPtr(), size);
    return isHeader ? blockSize(held->GetRawDataPtr()) : iDataSize;
}

int ICommand::removeESC(DataBuffer* data)
{
    return removeBlockHeaders(data, debugEnabled());
}

int ICommand::removeBlockHeaders(DataBuffer* data, bool isTracing)
{
    if (isTracing) {
        log_debug("-> removing esc from data %d", iDataSize);
    }
    const int rawSize = data->GetRawDataSize();
    if (iDataSize == 0 && rawSize > 0) {
        const unsigned char* raw = data->GetRawDataPtr();
        if (startsLikeBlock(raw, rawSize)) {
            // One or two bytes may also be image data; only the next ones tell.
            if (rawSize < std::max(iStrip, kSmallestBlockHeader)) {
                return 0;
            }
            iDataSize = blockSize(raw);
            // What is processed in front of the raw part stays there.
            data->DiscardRawData(iStrip);
        } else {
            iDataSize = rawSize;
        }
    }
    const int k = std::min(iDataSize, data->GetRawDataSize());
    data->SetProcessedDataSize(k);
    iDataSize -= k;
    return data->GetRawDataSize() > iStrip ? 1 : 0;
}
