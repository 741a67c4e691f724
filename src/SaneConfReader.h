// SPDX-License-Identifier: LGPL-2.1-or-later
// The backend configuration file: which models this backend drives.
#pragma once

#include "CLogger.h"

#include <cstdio>
#include <deque>
#include <string>

// One configured model.
struct ScannerInfo {
    int iVID = 0;                    // USB vendor ID
    int iPID = 0;                    // USB product ID
    std::string szFeaturePathFname;  // absolute path of the model feature file
    std::string szModelName;
};

// A line of the file reads
//
//   usb <vendor ID> <product ID> <feature file> <model name>
//
// with the IDs in hexadecimal and "_" for a blank in the model name. A line that
// starts with "#" is a comment; any other line is skipped.
class SaneConfReader : public CLogger {
public:
    // Appends the models of a file. 1: the file was read, 0: it could not be opened.
    int LoadConf(const char* path);

    // 1 if a model with these IDs is configured, else 0.
    int isFound(int vid, int pid);
    // The feature file of the first model with these IDs, or null. The text belongs
    // to the reader.
    const char* GetFeatureFile(int vid, int pid);
    void Add(int vid, int pid, const char* featureFile, const char* modelName);

    // Reads and trims one line; null at the end of the file.
    char* ConfigParser(char* buf, int size, FILE* stream);
    const char* SkipWhiteSpace(const char* s);

private:
    const ScannerInfo* find(int vid, int pid) const;
    void parseLine(const char* line);

    // Growing moves no entry, so that the texts handed out stay where they are.
    std::deque<ScannerInfo> ScannerList;
};
