// SPDX-License-Identifier: LGPL-2.1-or-later
// Command encoding of protocol version 326, the base of the later ones.
#pragma once

#include "ICommand.h"

// Multi-byte fields of the parameter block are little-endian; resolutions are in
// dots per inch, extents and offsets in dots.
class Cmd326 : public virtual ICommand {
public:
    Cmd326();
    ~Cmd326() override;

    int getCommand(unsigned char** out, int* len) override;
    int getCommandId() override;
    void appendData(unsigned char** cmd) override;

    // The length of the long commands (lock and start) in bytes.
    void setCmdLen(int n);

protected:
    int iCmdLen = 0;
};
