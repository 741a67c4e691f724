// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Cmd401.h"

namespace {

constexpr int kCommandLength = 34;
constexpr unsigned char kParameterLength = kCommandLength - 8;

}  // namespace

Cmd401::Cmd401()
{
    iVer = 401;
    iStrip = 10;
    iStripMin = 2;
    iCmdLen = kCommandLength;
}

Cmd401::~Cmd401() = default;

int Cmd401::getCommand(unsigned char** out, int* len)
{
    return Cmd326::getCommand(out, len);
}

void Cmd401::appendData(unsigned char** cmd)
{
    Cmd326::appendData(cmd);
    log_debug("%s -> append selected options", __func__);
    unsigned char* bytes = *cmd;
    bytes[4] = kParameterLength;
    bytes[32] = static_cast<unsigned char>(getSource());
    bytes[33] = 0;
}
