// SPDX-License-Identifier: LGPL-2.1-or-later
// The engine as sane_open leaves it, with a transport and settings of the fuzzer's own.
#pragma once

#include "Input.h"

#include "ImageData.h"
#include "ScanLib.h"

#include <vector>

namespace fuzz {

// Of a scan, from the front of an input.
struct Settings {
    explicit Settings(Input& input);
    int number(const char* key) const;

    int version;
    int npa;
    bool isLogged;
    bool isFeeder;
    std::vector<std::pair<const char*, int>> numbers;  // of the option store
    double width;                                      // millimetres
    double height;
    std::vector<int> readSizes;
};

struct Page {
    int status;
    Bytes bytes;
};

class ScanEngine : public ScanLib {
public:
    // comm: owned by the engine.
    ScanEngine(const Settings& settings, ICommunication* comm);

    // Reads until the status is not good, taking the sizes in turn.
    Page readPage(const std::vector<int>& sizes);
    // What the device reports of the page's width must not lead out of it.
    void cutToScannedWidth(Page page);
    void cancelNow() { Interrupt(); }
};

}  // namespace fuzz
