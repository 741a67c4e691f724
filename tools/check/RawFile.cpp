// SPDX-License-Identifier: LGPL-2.1-or-later
#include "RawFile.h"

#include "SaneConfReader.h"
#include "Text.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include <sys/stat.h>

namespace check {

namespace {

constexpr int kLineSize = 4096;  // of both readers
constexpr off_t kLargest = 1 << 18;

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

bool isUsable(const std::string& path, const std::string& what, Voice& voice)
{
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) {
        const int error = errno;
        const std::string why = strerror(error);
        if (error == EACCES) {
            voice.error(0, "file-unreadable", what + " cannot be read: " + why + ".",
                        closedFolderAdvice(path));
            return false;
        }
        voice.error(0, "file-missing", what + " cannot be found: " + why + ".",
                    "Install the backend, or put the file where it belongs: " + printable(path));
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        voice.error(0, "not-a-file", what + " is no plain file but a folder or a device.",
                    "Put a text file in its place: " + printable(path));
        return false;
    }
    if (info.st_size > kLargest) {
        voice.error(0, "file-too-large", what + " is larger than 256 KB, so it was not looked at.",
                    "Have a look whether it is the right file: " + printable(path));
        return false;
    }
    return true;
}

std::string contentOf(FILE* file)
{
    std::string content;
    char block[4096];
    std::size_t got = 0;
    while ((got = fread(block, 1, sizeof block, file)) > 0 &&
           content.size() <= static_cast<std::size_t>(kLargest)) {
        content.append(block, got);
    }
    return content;
}

std::vector<Piece> cut(std::string content)
{
    std::vector<Piece> pieces;
    if (content.empty()) {
        return pieces;
    }
    const File file(fmemopen(content.data(), content.size(), "r"), fclose);
    SaneConfReader reader;
    char buffer[kLineSize];
    int line = 1;
    long start = 0;
    while (file && reader.ConfigParser(buffer, sizeof buffer, file.get()) != nullptr) {
        const long end = ftell(file.get());
        const std::string raw =
            content.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start));
        const bool isEnded = !raw.empty() && raw.back() == '\n';
        Piece piece;
        piece.line = line;
        piece.isRest = !pieces.empty() && pieces.back().hasMore;
        piece.hasMore = !isEnded && static_cast<std::size_t>(end) < content.size() &&
                        content[static_cast<std::size_t>(end)] != '\n';
        piece.hasNul = raw.find('\0') != std::string::npos;
        piece.text = buffer;
        pieces.push_back(piece);
        line += isEnded ? 1 : 0;
        start = end;
    }
    return pieces;
}

void judgeForm(const std::string& content, const std::vector<Piece>& pieces, Voice& voice)
{
    for (const Piece& piece : pieces) {
        if (piece.hasMore && !piece.isRest) {
            voice.error(piece.line, "line-too-long",
                        "the line has more than 4095 characters; what is behind them is read as a "
                        "line of its own, even behind a \"#\".",
                        "Shorten the long lines.");
        }
        if (piece.hasNul) {
            voice.error(piece.line, "nul-byte",
                        "there is a zero byte in the line; what stands behind it is not read.",
                        "Write the file anew with a text editor, as plain text (UTF-8).");
        }
    }
    if (startsWith(content, "\xEF\xBB\xBF")) {
        voice.error(1, "byte-order-mark",
                    "the file begins with an invisible mark (a byte order mark), which the backend "
                    "takes for a part of the first line.",
                    "Save the file as \"UTF-8 without BOM\".");
    }
    if (content.find("\r\n") != std::string::npos) {
        voice.note(0, "crlf",
                   "the lines end as on Windows (CR and LF); the backend does not mind.");
    }
    if (!content.empty() && content.back() != '\n') {
        voice.note(pieces.empty() ? 0 : pieces.back().line, "no-final-newline",
                   "the last line has no end; it is read all the same, but a line that a program "
                   "appends would become a part of it.");
    }
}

}  // namespace

std::string closedFolderAdvice(const std::string& path)
{
    return "Let everybody enter the folders in which it is (chmod a+x): " + printable(path);
}

RawFile RawFile::read(const std::string& path, const std::string& what, Findings& findings)
{
    RawFile result;
    Voice voice(findings, path);
    if (!isUsable(path, what, voice)) {
        return result;
    }
    const File file(fopen(path.c_str(), "re"), fclose);
    if (!file) {
        const std::string why = strerror(errno);
        voice.error(0, "file-unreadable", what + " cannot be read: " + why + ".",
                    "Let everybody read it: chmod a+r " + printable(path));
        return result;
    }
    const std::string content = contentOf(file.get());
    result.isRead = true;
    result.pieces = cut(content);
    judgeForm(content, result.pieces, voice);
    return result;
}

}  // namespace check
