// SPDX-License-Identifier: LGPL-2.1-or-later
// What the tests of scanlib-check share.
#pragma once

#include "Finding.h"
#include "TestSupport.h"

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace check {

inline void PrintTo(const Finding& finding, std::ostream* out)
{
    *out << finding.place << ":" << finding.line << ": " << nameOf(finding.severity) << ": "
         << finding.message << " [" << finding.code << "]";
}

// "<severity> <line> <code>" of each finding, in order.
inline std::vector<std::string> codesOf(const Findings& findings)
{
    std::vector<std::string> codes;
    for (const Finding& finding : findings) {
        codes.push_back(std::string(nameOf(finding.severity)) + " " + std::to_string(finding.line) +
                        " " + finding.code);
    }
    return codes;
}

// The message with that code, empty without one.
inline std::string messageOf(const Findings& findings, const std::string& code)
{
    const auto found =
        std::find_if(findings.begin(), findings.end(),
                     [&code](const Finding& finding) { return finding.code == code; });
    return found != findings.end() ? found->message : "";
}

// A folder with all that is written into it, gone at the end.
class Folder {
public:
    Folder() : path_(testing::TempDir() + "check-XXXXXX")
    {
        if (mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder()
    {
        std::error_code error;
        std::filesystem::remove_all(path_, error);
    }

    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    std::string write(const std::string& name, const std::string& text) const
    {
        const std::string path = *this / name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }

private:
    std::string path_;
};

}  // namespace check
