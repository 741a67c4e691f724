// SPDX-License-Identifier: LGPL-2.1-or-later
#include "LogLine.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace trace {

namespace {

constexpr std::uint64_t kSecond = 1000000;
constexpr const char* kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
constexpr unsigned kLongestLine = 4096;

// ".123456" at text, or 0.
std::uint64_t fraction(const char* text)
{
    std::uint64_t value = 0;
    std::uint64_t unit = kSecond / 10;
    if (*text == '.' || *text == ',') {
        for (++text; *text >= '0' && *text <= '9'; ++text, unit /= 10) {
            value += static_cast<std::uint64_t>(*text - '0') * unit;
        }
    }
    return value;
}

// Since some day long ago; `month` counts from 1.
std::uint64_t moment(unsigned year, unsigned month, unsigned day, unsigned seconds)
{
    // Years that begin in March have the day that is not always there at their end. 400 of them
    // more change nothing but that there is no year -1.
    const std::uint64_t months = (std::uint64_t{year} + 400) * 12 + month - 3;
    const std::uint64_t years = months / 12;
    const std::uint64_t days =
        years * 365 + years / 4 - years / 100 + years / 400 + (months % 12 * 153 + 2) / 5 + day;
    return (days * 86400 + seconds) * kSecond;
}

// "Nov 22 07:10:54.123456"
std::optional<std::uint64_t> traditionalTime(const char* line)
{
    char name[4] = "";
    unsigned day = 0, hour = 0, minute = 0, second = 0;
    int used = 0;
    if (std::sscanf(line, "%3s %2u %2u:%2u:%2u%n", name, &day, &hour, &minute, &second, &used) <
        5) {
        return std::nullopt;
    }
    const char* month = std::strlen(name) == 3 ? std::strstr(kMonths, name) : nullptr;
    if (month == nullptr) {
        return std::nullopt;
    }
    constexpr unsigned kSomeYear = 2001;
    return moment(kSomeYear, static_cast<unsigned>(month - kMonths) / 3 + 1, day,
                  (hour * 60 + minute) * 60 + second) +
           fraction(line + used);
}

// "2026-11-22T07:10:54.123456+01:00"
std::optional<std::uint64_t> isoTime(const char* line)
{
    unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    int used = 0;
    if (std::sscanf(line, "%4u-%2u-%2u%*1[T ]%2u:%2u:%2u%n", &year, &month, &day, &hour, &minute,
                    &second, &used) < 6) {
        return std::nullopt;
    }
    return moment(year, month, day, (hour * 60 + minute) * 60 + second) + fraction(line + used);
}

// "[ 1234.567890]" since the machine was started, or "1700000000.123456"
std::optional<std::uint64_t> plainTime(const char* line)
{
    unsigned long seconds = 0;
    int used = 0;
    const char* format = line[0] == '[' ? "[%10lu%n" : "%10lu%n";
    if (std::sscanf(line, format, &seconds, &used) < 1 || line[used] != '.') {
        return std::nullopt;
    }
    return seconds * kSecond + fraction(line + used);
}

std::optional<std::uint64_t> timeOf(const char* line)
{
    for (const auto read : {traditionalTime, isoTime, plainTime}) {
        if (const auto time = read(line)) {
            return time;
        }
    }
    return std::nullopt;
}

bool isHexDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

// Where the pairs of hexadecimal digits begin that end the line.
std::size_t hexStart(const std::string& line, std::size_t end)
{
    std::size_t at = end;
    while (at >= 2 && isHexDigit(line[at - 1]) && isHexDigit(line[at - 2]) &&
           (at == 2 || line[at - 3] == ' ')) {
        at -= at == 2 ? 2 : 3;
    }
    return at;
}

// Where the message begins that has no mark of the backend. Only those of dumps are of interest.
std::size_t messageStart(const std::string& line)
{
    const std::size_t size = line.rfind("(size: ");
    if (size != std::string::npos) {
        return size;
    }
    return hexStart(line, line.size());
}

// "scanimage[1234]: " in front of a message.
std::optional<long> processOf(const std::string& prefix)
{
    const std::size_t close = prefix.rfind("]:");
    const std::size_t open =
        close != std::string::npos ? prefix.rfind('[', close) : std::string::npos;
    if (open == std::string::npos) {
        return std::nullopt;
    }
    return std::strtol(prefix.c_str() + open + 1, nullptr, 10);
}

// "[P:1 T:2] file : 3 function -- message"
bool readMark(const std::string& line, std::size_t at, LogLine& result)
{
    long process = 0;
    std::array<char, 24> thread{};
    std::array<char, 24> function{};
    int used = 0;
    if (std::sscanf(line.c_str() + at, "[P:%20ld T:%20[-0-9]] %*15c : %*4d %20s%n", &process,
                    thread.data(), function.data(), &used) < 3) {
        return false;
    }
    const std::size_t dashes = line.find("-- ", at + static_cast<std::size_t>(used));
    if (dashes == std::string::npos) {
        return false;
    }
    result.hasMark = true;
    result.process = process;
    result.thread = thread.data();
    result.function = function.data();
    result.message = line.substr(dashes + 3);
    return true;
}

}  // namespace

LogLine readLogLine(const std::string& whole)
{
    std::string line = whole.substr(0, kLongestLine);
    while (!line.empty() && (line.back() == ' ' || line.back() == '\r')) {
        line.pop_back();
    }
    LogLine result;
    result.time = timeOf(line.c_str());
    const std::size_t mark = line.find("[P:");
    if (mark != std::string::npos && readMark(line, mark, result)) {
        return result;
    }
    const std::size_t start = messageStart(line);
    result.process = processOf(line.substr(0, start));
    result.message = line.substr(start);
    return result;
}

std::optional<std::size_t> dumpSize(const std::string& message)
{
    std::size_t size = 0;
    int used = 0;
    if (std::sscanf(message.c_str(), "(size: %7zu)%n", &size, &used) < 1 || used == 0) {
        return std::nullopt;
    }
    return size;
}

}  // namespace trace
