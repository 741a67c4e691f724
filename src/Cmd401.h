// SPDX-License-Identifier: LGPL-2.1-or-later
// Command encoding of protocol version 401.
#pragma once

#include "Cmd326.h"

class Cmd401 : public Cmd326 {
public:
    Cmd401();
    ~Cmd401() override;

    int getCommand(unsigned char** out, int* len) override;
    void appendData(unsigned char** cmd) override;
};
