// SPDX-License-Identifier: LGPL-2.1-or-later
// Command encoding of protocol version 402.
#pragma once

#include "Cmd326.h"

class Cmd402 : public Cmd326 {
public:
    Cmd402();
    ~Cmd402() override;

    int getCommand(unsigned char** out, int* len) override;
    void appendData(unsigned char** cmd) override;
};
