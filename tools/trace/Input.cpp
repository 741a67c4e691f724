// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Input.h"

#include "CaptureFile.h"
#include "LogReader.h"
#include "NetworkReader.h"
#include "Packet.h"
#include "UsbReader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

namespace trace {

namespace {

constexpr std::size_t kMagicSize = 4;

// Of pcap in both byte orders and resolutions of time, and of pcapng.
constexpr std::uint32_t kPacketFiles[] = {0xA1B2C3D4, 0xD4C3B2A1, 0xA1B23C4D, 0x4D3CB2A1,
                                          0x0A0D0D0A};

bool isPacketFile(ByteView start)
{
    return std::any_of(std::begin(kPacketFiles), std::end(kPacketFiles),
                       [start](std::uint32_t magic) { return start.big(0, kMagicSize) == magic; });
}

bool isCapture(ByteView start)
{
    const std::string heading = kCaptureHeading;
    return start.startsWith(Bytes(heading.begin(), heading.end()));
}

}  // namespace

InputKind kindOfInput(ByteView start)
{
    if (isPacketFile(start)) {
        return InputKind::Packets;
    }
    return isCapture(start) ? InputKind::Capture : InputKind::Log;
}

std::vector<Conversation> readPackets(PacketFile& file)
{
    if (isUsbRecording(file)) {
        return readUsb(file);
    }
    if (!isKnownLink(file.linkType())) {
        throw std::runtime_error("packets of link type " + std::to_string(file.linkType()) +
                                 " cannot be read");
    }
    return readNetwork(file);
}

std::vector<Conversation> readInput(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string start(64, '\0');
    file.read(start.data(), static_cast<std::streamsize>(start.size()));
    if (file.gcount() == 0) {
        throw std::runtime_error(file.eof() ? "the file is empty" : std::strerror(errno));
    }
    start.resize(static_cast<std::size_t>(file.gcount()));
    const InputKind kind = kindOfInput(Bytes(start.begin(), start.end()));
    if (kind == InputKind::Packets) {
        PacketFile packets(path);
        return readPackets(packets);
    }
    file.clear();
    file.seekg(0);
    if (kind == InputKind::Capture) {
        return {readCapture(file)};
    }
    return readLog(file);
}

}  // namespace trace
