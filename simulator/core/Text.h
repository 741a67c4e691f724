// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace scansim {

// What a user wrote (model file, option, fault) does not make sense; the message says where and
// why.
class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::string trimmed(const std::string& text);

// The non-empty words between blanks.
std::vector<std::string> words(const std::string& text);

std::vector<std::string> split(const std::string& text, char separator);

// "yes", "no" and their likes; InputError otherwise.
bool parseFlag(const std::string& text);

// Whether the text is `yes` rather than `no`; InputError if it is neither.
bool parseChoice(const std::string& text, const std::string& no, const std::string& yes);

// Decimal or 0x-hexadecimal within [low, high], nothing around it; InputError otherwise.
std::uint32_t parseNumber(const std::string& text, std::uint32_t low, std::uint32_t high);

}  // namespace scansim
