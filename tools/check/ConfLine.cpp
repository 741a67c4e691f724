// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ConfLine.h"

#include "Text.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <vector>

namespace check {

namespace {

constexpr std::size_t kFields = 5;  // with the word "usb"
constexpr unsigned kLargestId = 0xFFFF;
constexpr const char* kForm =
    "A line reads: usb VENDOR-ID PRODUCT-ID FEATURE-FILE MODEL-NAME (for example: usb 0x1234 "
    "0x5678 /usr/share/scanlib/models/combo-401.ini My_Scanner)";
constexpr const char* kFieldNames[kFields] = {"word \"usb\"", "vendor ID", "product ID",
                                              "feature file", "model name"};

bool isHexDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool isHexNumber(const std::string& word)
{
    const bool hasPrefix = startsWith(word, "0x") || startsWith(word, "0X");
    const std::string digits = word.substr(hasPrefix ? 2 : 0);
    return !digits.empty() && std::all_of(digits.begin(), digits.end(), isHexDigit);
}

bool isHexNumberTooLarge(const std::string& word)
{
    errno = 0;
    const unsigned long long value = strtoull(word.c_str(), nullptr, 16);
    return errno == ERANGE || value > kLargestId;
}

void explainWord(const std::string& word, int line, Voice& voice)
{
    std::string why = "skipped: the line begins with " + quoted(word) +
                      ", and only lines that begin with \"usb\" name a scanner";
    if (lowered(word) == "usb") {
        why = "skipped: " + quoted(word) + " must be written in small letters, \"usb\"";
    } else if (startsWith(word, "\xEF\xBB\xBF")) {
        why = "skipped: there is an invisible mark before the first word";
    } else if (distance(lowered(word), "usb") == 1) {
        why += "; did you mean \"usb\"?";
    }
    voice.error(line, "wrong-word", why, kForm);
}

void explainId(const std::vector<std::string>& fields, std::size_t at, int line, Voice& voice)
{
    voice.error(line, "id-not-hexadecimal",
                "skipped: the " + std::string(kFieldNames[at]) + " " + quoted(fields[at]) +
                    " is not a hexadecimal number (0 to 9, a to f).",
                "Write the IDs as lsusb shows them, for example 1234 or 0x1234.");
}

// Why the backend passes the line over.
void explainSkipped(const std::vector<std::string>& fields, int line, Voice& voice)
{
    if (fields.empty() || fields[0] != "usb") {
        explainWord(fields.empty() ? "" : fields[0], line, voice);
        return;
    }
    for (std::size_t at = 1; at <= 2 && at < fields.size(); ++at) {
        if (!isHexNumber(fields[at])) {
            explainId(fields, at, line, voice);
            return;
        }
    }
    std::string missing;
    for (std::size_t at = fields.size(); at < kFields; ++at) {
        missing += (missing.empty() ? "" : ", ") + std::string(kFieldNames[at]);
    }
    voice.error(line, "too-few-fields",
                "skipped: there are not enough fields; missing: " +
                    (missing.empty() ? std::string("something") : missing) + ".",
                kForm);
}

void judgeId(const std::string& word, const char* what, unsigned read, int line, Voice& voice)
{
    if (read > kLargestId) {
        voice.error(line, "id-too-large",
                    "the " + std::string(what) + " " + quoted(word) +
                        " has more than four digits: no device has it.",
                    "Write the IDs as lsusb shows them, for example 1234 or 0x1234.");
    } else if (isHexNumber(word) && isHexNumberTooLarge(word)) {
        voice.error(line, "id-too-large",
                    "the " + std::string(what) + " " + quoted(word) +
                        " is too large; only its end counts, which is " + hexId(read) + ".",
                    "Write the IDs as lsusb shows them, for example 1234 or 0x1234.");
    }
}

bool isCleanlyCut(const std::vector<std::string>& fields, const ProbedModel& model)
{
    return fields.size() >= kFields && fields[0] == "usb" && isHexNumber(fields[1]) &&
           isHexNumber(fields[2]) && fields[3] == model.featureFile && fields[4] == model.name;
}

void judgeRest(const std::vector<std::string>& fields, int line, Voice& voice)
{
    if (fields.size() <= kFields) {
        return;
    }
    const bool isComment = fields[kFields][0] == '#';
    const std::string message = quoted(fields[kFields]) +
                                " and what comes behind it is not read: nothing may follow the "
                                "model name";
    if (isComment) {
        voice.note(line, "text-behind-name", message + ", comments are lines of their own.");
    } else {
        voice.warning(line, "text-behind-name", message + ".",
                      "Write \"_\" for a blank in the model name; the path of the feature file "
                      "must not contain a blank at all.");
    }
}

std::string oddity(const std::vector<std::string>& fields)
{
    for (std::size_t at = 1; at <= 2 && at < fields.size() && fields[0] == "usb"; ++at) {
        if (!isHexNumber(fields[at])) {
            return quoted(fields[at]) + " is no hexadecimal number";
        }
    }
    return "the fields are not separated by blanks";
}

void judgeTaken(const std::vector<std::string>& fields, const ProbedModel& model, int line,
                Voice& voice)
{
    if (!isCleanlyCut(fields, model)) {
        voice.warning(line, "fields-run-together",
                      oddity(fields) + "; the backend reads vendor ID " + hexId(model.vendor) +
                          ", product ID " + hexId(model.product) + ", feature file " +
                          quoted(model.featureFile) + ", name " + quoted(model.name) + ".",
                      kForm);
    }
    judgeId(fields.size() > 1 ? fields[1] : "", "vendor ID", model.vendor, line, voice);
    judgeId(fields.size() > 2 ? fields[2] : "", "product ID", model.product, line, voice);
    if (model.name[0] == '#') {
        voice.warning(
            line, "comment-as-name",
            quoted(model.name) + " is read as the model name; comments are lines of their own.",
            kForm);
    }
    judgeRest(fields, line, voice);
}

}  // namespace

ProbedModel judgeConfLine(const std::string& text, int line, Voice& voice)
{
    ProbedModel model = probeModel(text);
    const std::vector<std::string> fields = words(text);
    if (model.isTaken) {
        judgeTaken(fields, model, line, voice);
    } else {
        explainSkipped(fields, line, voice);
    }
    return model;
}

}  // namespace check
