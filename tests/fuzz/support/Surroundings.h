// SPDX-License-Identifier: LGPL-2.1-or-later
// The system around the library: log, clock and files, none of them real.
#pragma once

#include <chrono>
#include <string>

namespace fuzz {

// What the library logs is formatted and looked at, then forgotten.
void setLogging(bool isOn);

// The library's clock only goes on here, so that no wait takes time.
void passTime(std::chrono::milliseconds time);

// The only files there are.
void putFile(const std::string& path, const std::string& content);
void removeFiles();

}  // namespace fuzz
