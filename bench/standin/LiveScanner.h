// SPDX-License-Identifier: LGPL-2.1-or-later
// A simulated scanner, whose answers are recorded.
#pragma once

#include "StandInUsb.h"

#include "FaultScript.h"
#include "Journal.h"
#include "ModelFile.h"
#include "PageRecorder.h"
#include "Scanner.h"

#include <string>

namespace standin {

class LiveScanner : public UsbScanner {
public:
    // settings: "key=value" as on the command line of scanner-sim, with commas between them.
    LiveScanner(const std::string& modelFile, const std::string& settings);

    int vendorId() const override { return recording_.vendorId; }
    int productId() const override { return recording_.productId; }
    void write(const unsigned char* bytes, int size) override;
    int read(unsigned char* bytes, int capacity) override;

    const Recording& recording() const { return recording_; }

private:
    scansim::Model model_;
    scansim::FaultScript faults_;
    scansim::Journal journal_{"recorded"};
    scansim::PageRecorder recorder_;
    scansim::Scanner scanner_;
    Recording recording_;
};

}  // namespace standin
