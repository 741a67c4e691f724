// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Probe.h"

#include "FlatFileReader.h"
#include "MemoryFile.h"
#include "SaneConfReader.h"

#include <cstdio>

namespace check {

namespace {

constexpr std::size_t kLineSize = 4096;
// Longer numbers than this say nothing more.
constexpr std::size_t kLongestNumber = 2000;

void load(FlatFileReader& reader, const std::string& section, const std::string& value)
{
    const MemoryFile file(section + "\nV=" + value.substr(0, kLongestNumber) + "\n");
    reader.LoadConfig(file.path());
}

}  // namespace

// The fields are scanned as the backend does it; whether they make a model, it says itself.
ProbedModel probeModel(const std::string& line)
{
    ProbedModel model;
    char path[kLineSize];
    char name[kLineSize];
    const int fields =
        sscanf(line.c_str(), "usb %x %x %4095s %4095s", &model.vendor, &model.product, path, name);
    if (fields < 2) {
        return model;
    }
    const MemoryFile file(line + "\n");
    SaneConfReader reader;
    reader.LoadConf(file.path());
    const char* featureFile =
        reader.GetFeatureFile(static_cast<int>(model.vendor), static_cast<int>(model.product));
    if (featureFile != nullptr) {
        model.isTaken = true;
        model.featureFile = featureFile;
        model.name = name;
    }
    return model;
}

int probeInteger(const std::string& value)
{
    FlatFileReader reader;
    load(reader, "[INTEGERS]", value);
    return reader.GetIntOption("V");
}

double probeDouble(const std::string& value)
{
    FlatFileReader reader;
    load(reader, "[DOUBLES]", value);
    return reader.GetDoubleOption("V");
}

}  // namespace check
