// SPDX-License-Identifier: LGPL-2.1-or-later
// Small things about texts that others have written.
#pragma once

#include <string>
#include <vector>

namespace check {

// The text with everything that could do harm on a terminal, or is no UTF-8, as \xNN.
std::string printable(const std::string& text);

// Printable, cut where it is very long, between single quotes.
std::string quoted(const std::string& text);

// The runs of what is not white space for the backend.
std::vector<std::string> words(const std::string& text);

// Without white space at both ends.
std::string trimmed(const std::string& text);
bool isTrimmed(const std::string& text);
std::string lowered(std::string text);
bool startsWith(const std::string& text, const std::string& front);

// How many letters have to be inserted, removed, replaced or exchanged with their neighbour.
int distance(const std::string& a, const std::string& b);

// "1234", as lsusb shows IDs.
std::string hexId(unsigned id);

std::string plural(std::size_t count, const std::string& noun);

}  // namespace check
