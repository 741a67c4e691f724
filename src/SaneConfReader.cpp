// SPDX-License-Identifier: LGPL-2.1-or-later
#include "SaneConfReader.h"

#include "TextLine.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace {

constexpr int kLineSize = 4096;

}  // namespace

const char* SaneConfReader::SkipWhiteSpace(const char* s)
{
    return TextLine::skipWhiteSpace(s);
}

char* SaneConfReader::ConfigParser(char* buf, int size, FILE* stream)
{
    char* line = fgets(buf, size, stream);
    if (line != nullptr) {
        TextLine::trim(line);
    }
    return line;
}

void SaneConfReader::Add(int vid, int pid, const char* featureFile, const char* modelName)
{
    ScannerList.push_back({vid, pid, featureFile, modelName});
}

void SaneConfReader::parseLine(const char* line)
{
    unsigned vid = 0;
    unsigned pid = 0;
    char path[kLineSize];
    char model[kLineSize];
    if (sscanf(line, "usb %x %x %4095s %4095s", &vid, &pid, path, model) != 4) {
        return;
    }
    std::replace(model, model + strlen(model), '_', ' ');
    Add(static_cast<int>(vid), static_cast<int>(pid), path, model);
}

int SaneConfReader::LoadConf(const char* path)
{
    SL_START();
    const std::unique_ptr<FILE, int (*)(FILE*)> file(path != nullptr ? fopen(path, "re") : nullptr,
                                                     fclose);
    if (!file) {
        const int error = errno;
        log_debug("Error opening configuration file.");
        log_debug("%s: %s", path != nullptr ? path : "(no path)", strerror(error));
        SL_RETURN(0);
    }

    char line[kLineSize];
    while (ConfigParser(line, sizeof line, file.get()) != nullptr) {
        if (line[0] != '#' && line[0] != '\0') {
            parseLine(line);
        }
    }
    SL_RETURN(1);
}

const ScannerInfo* SaneConfReader::find(int vid, int pid) const
{
    const auto found = std::find_if(
        ScannerList.begin(), ScannerList.end(),
        [vid, pid](const ScannerInfo& info) { return info.iVID == vid && info.iPID == pid; });
    return found != ScannerList.end() ? &*found : nullptr;
}

int SaneConfReader::isFound(int vid, int pid)
{
    return find(vid, pid) != nullptr ? 1 : 0;
}

const char* SaneConfReader::GetFeatureFile(int vid, int pid)
{
    const ScannerInfo* info = find(vid, pid);
    return info != nullptr ? info->szFeaturePathFname.c_str() : nullptr;
}
