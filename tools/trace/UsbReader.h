// SPDX-License-Identifier: LGPL-2.1-or-later
// The conversations in a recording of USB by usbmon: those of devices with bulk transfers.
#pragma once

#include "Conversation.h"
#include "PacketFile.h"

namespace trace {

// Whether the file is such a recording.
bool isUsbRecording(const PacketFile& file);
std::vector<Conversation> readUsb(PacketFile& file);

}  // namespace trace
