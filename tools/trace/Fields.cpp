// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Fields.h"

#include "../../src/CSources.h"
#include "../../src/ICommunication.h"

#include <algorithm>
#include <cstdio>

namespace trace {

namespace {

struct Word {
    std::uint64_t value;
    const char* text;
};

std::string wordFor(const std::vector<Word>& words, std::uint64_t value)
{
    const auto found = std::find_if(words.begin(), words.end(),
                                    [value](const Word& word) { return word.value == value; });
    return found != words.end() ? found->text : "unknown";
}

std::string withNumber(const std::vector<Word>& words, std::uint64_t value)
{
    return wordFor(words, value) + " (" + std::to_string(value) + ")";
}

std::string number(std::uint64_t value)
{
    return std::to_string(value);
}

std::string pixels(std::uint64_t value)
{
    return number(value) + " pixels";
}

std::string lines(std::uint64_t value)
{
    return number(value) + " lines";
}

std::string dots(std::uint64_t value)
{
    return number(value) + " dots";
}

std::string dotsPerInch(std::uint64_t value)
{
    return number(value) + " dpi";
}

std::string bits(std::uint64_t value)
{
    return number(value) + " bits a pixel";
}

std::string byteCount(std::uint64_t value)
{
    return number(value) + " bytes";
}

// Lengths in the properties are in dots of 300 an inch.
std::string length(std::uint64_t value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%llu dots (%.1f mm at 300 dpi)",
                  static_cast<unsigned long long>(value), static_cast<double>(value) * 25.4 / 300);
    return text;
}

std::string colour(std::uint64_t value)
{
    return withNumber({{3, "colour"}, {2, "grey"}}, value);
}

std::string preview(std::uint64_t value)
{
    return withNumber({{4, "preview"}, {3, "normal"}}, value);
}

std::string sourceCode(std::uint64_t value)
{
    return withNumber({{1, "flatbed"}, {4, "feeder"}, {0, "third source"}}, value);
}

std::string sourceType(std::uint64_t value)
{
    return withNumber({{SOURCE_FLATBED, "flatbed"}, {SOURCE_FEEDER, "feeder"}}, value);
}

std::string yesOrNo(std::uint64_t value)
{
    return withNumber({{1, "yes"}, {0, "no"}}, value);
}

std::string hexNumber(std::uint64_t value)
{
    char text[32];
    std::snprintf(text, sizeof text, "0x%llX", static_cast<unsigned long long>(value));
    return text;
}

const std::vector<Word> kStatuses = {{128, "good"},   {129, "invalid"}, {130, "busy"},
                                     {131, "busy"},   {132, "failed"},  {133, "failed"},
                                     {134, "failed"}, {136, "refused"}, {137, "no memory"}};

const std::vector<Word> kFeeders = {{0, "no feeder"}, {1, "feeder empty"}, {2, "feeder loaded"}};

const std::vector<Word> kRecords = {{RECORD_END_OF_DATA, "end of the page"},
                                    {RECORD_NO_MEMORY, "out of memory"},
                                    {RECORD_STOPPED, "stopped"},
                                    {RECORD_CANCELLED, "stopped"},
                                    {RECORD_PAPER_JAM, "paper jam"},
                                    {RECORD_PAGE_MARKER, "page marker"},
                                    {RECORD_DEVICE_FAILURE, "device failure"}};

}  // namespace

std::string statusWords(std::uint64_t value)
{
    return withNumber(kStatuses, value);
}

std::string feederWords(std::uint64_t value)
{
    return withNumber(kFeeders, value);
}

std::string recordWords(std::uint64_t value)
{
    return withNumber(kRecords, value);
}

const std::vector<Field> kParameterFields = {
    {"parameter length", 4, 1, byteCount},
    {"colour", 8, 1, colour},
    {"compression", 9, 1, number},
    {"compression level", 10, 1, number},
    {"preview", 11, 1, preview},
    {"width", 12, 4, pixels},
    {"height", 16, 4, lines},
    {"offset from the left", 20, 4, dots},
    {"offset from the top", 24, 4, dots},
    {"horizontal resolution", 28, 2, dotsPerInch},
    {"vertical resolution", 30, 2, dotsPerInch},
    {"source", 32, 1, sourceCode},
    {"zero", 33, 1, number},
    {"constant", 34, 3, hexNumber},
    {"constant", 37, 2, hexNumber},
    {"constant", 39, 2, hexNumber},
    {"constant", 41, 2, hexNumber},
};

const std::vector<Field> kReplyFields = {
    {"length", 4, 2, byteCount}, {"status", 6, 1, statusWords}, {"feeder", 7, 1, feederWords}};

const std::vector<Field> kStartReplyFields = {{"record", 8, 1, number}, {"flipped", 9, 1, yesOrNo}};

const std::vector<Field> kPropertyFields = {
    {"major version", 0, 1, number},     {"minor version", 1, 1, number},
    {"code set", 2, 1, number},          {"compression technique", 3, 1, number},
    {"colour alignment", 4, 1, number},  {"grey alignment", 5, 1, number},
    {"number of sources", 6, 1, number},
};

const std::vector<Field> kSourceFields = {
    {"type", 0, 1, sourceType}, {"scan bar", 1, 1, number},
    {"origin", 2, 4, length},   {"width", 6, 4, length},
    {"height", 10, 4, length},  {"number of resolutions", 14, 1, number},
};

const std::vector<Field> kResolutionFields = {
    {"horizontal resolution", 0, 4, dotsPerInch},
    {"vertical resolution", 4, 4, dotsPerInch},
    {"depth", 8, 1, bits},
};

const std::vector<Field> kMarkerFields = {
    {"record", 8, 1, recordWords},
    {"half-lines", 10, 1, yesOrNo},
    {"width", 11, 4, pixels},
    {"height", 15, 4, lines},
    {"horizontal offset", 19, 4, dots},
    {"vertical offset", 23, 4, dots},
    {"trim", 27, 4, pixels},
};

void addRows(const std::vector<Field>& table, ByteView bytes, std::vector<Row>& rows)
{
    for (const Field& field : table) {
        const ByteView part = bytes.part(field.offset, field.size);
        if (part.empty()) {
            continue;
        }
        const std::string cut = part.size() < field.size ? ", cut off" : "";
        rows.push_back(
            {field.name, field.wording(bytes.little(field.offset, field.size)) + cut, part});
    }
}

}  // namespace trace
