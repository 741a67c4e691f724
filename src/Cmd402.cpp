// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Cmd402.h"

#include <cstring>

namespace {

constexpr int kCommandLength = 43;
constexpr unsigned char kParameterLength = kCommandLength - 8;
constexpr unsigned char kFixedTail[] = {0x01, 0x01, 0x01, 0x00, 0x80, 0x00, 0x80, 0x01, 0x02};

}  // namespace

Cmd402::Cmd402()
{
    iVer = 402;
    iStrip = 31;
    iStripMin = 23;
    iCmdLen = kCommandLength;
}

Cmd402::~Cmd402() = default;

int Cmd402::getCommand(unsigned char** out, int* len)
{
    return Cmd326::getCommand(out, len);
}

void Cmd402::appendData(unsigned char** cmd)
{
    SL_START();
    const int dpi = getCurrentDPI();
    SL_TRACE("command ID: %d", iCmd);
    Cmd326::appendData(cmd);
    SL_TRACE("append selected options");

    unsigned char* bytes = *cmd;
    bytes[4] = kParameterLength;
    bytes[30] = static_cast<unsigned char>(dpi);
    bytes[31] = static_cast<unsigned char>(dpi >> 8);
    bytes[32] = static_cast<unsigned char>(getSource());
    bytes[33] = 0;
    memcpy(bytes + 34, kFixedTail, sizeof kFixedTail);
    SL_END();
}
