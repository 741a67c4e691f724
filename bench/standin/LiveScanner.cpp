// SPDX-License-Identifier: LGPL-2.1-or-later
#include "LiveScanner.h"

#include <algorithm>
#include <sstream>

namespace standin {

namespace {

scansim::Model load(const std::string& file, const std::string& settings)
{
    std::vector<scansim::ModelSetting> overrides;
    std::istringstream texts(settings);
    for (std::string text; std::getline(texts, text, ',');) {
        overrides.push_back(scansim::ModelFile::parseSetting(text, text, "."));
    }
    return scansim::ModelFile::load(file, overrides);
}

}  // namespace

LiveScanner::LiveScanner(const std::string& modelFile, const std::string& settings)
    : model_(load(modelFile, settings)), scanner_(model_, faults_, journal_, recorder_)
{
    recording_.vendorId = static_cast<int>(model_.vendorId);
    recording_.productId = static_cast<int>(model_.productId);
}

void LiveScanner::write(const unsigned char* bytes, int size)
{
    const Bytes command(bytes, bytes + size);
    recording_.addCommand(command);
    scanner_.write(command);
}

int LiveScanner::read(unsigned char* bytes, int capacity)
{
    Bytes transfer;
    if (scanner_.read(static_cast<std::size_t>(capacity), transfer) !=
        scansim::TransferResult::Done) {
        return 0;
    }
    recording_.addAnswer(transfer);
    std::copy(transfer.begin(), transfer.end(), bytes);
    return static_cast<int>(transfer.size());
}

}  // namespace standin
