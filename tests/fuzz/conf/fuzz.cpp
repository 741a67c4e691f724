// SPDX-License-Identifier: LGPL-2.1-or-later
// The backend configuration file.
#include "Check.h"
#include "Input.h"
#include "Surroundings.h"

#include "SaneConfReader.h"

#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <utility>

namespace {

constexpr char kPath[] = "models.conf";
constexpr std::size_t kLongestPath = 4095;

using Ids = std::set<std::pair<int, int>>;

// Every two numbers that follow each other anywhere in the text.
Ids idsIn(const std::string& text)
{
    Ids ids = {{0, 0}, {0x1234, 0x3260}};
    const char* at = text.c_str();
    int last = 0;
    while (*at != '\0') {
        char* end = nullptr;
        const int number = static_cast<int>(strtoul(at, &end, 16));
        if (end == at) {
            ++at;
            continue;
        }
        ids.insert({last, number});
        last = number;
        at = end;
    }
    return ids;
}

void lookUp(SaneConfReader& reader, const Ids& ids)
{
    for (const auto& [vid, pid] : ids) {
        const char* path = reader.GetFeatureFile(vid, pid);
        fuzz::touch(path);
        FUZZ_CHECK((path != nullptr) == (reader.isFound(vid, pid) == 1));
        FUZZ_CHECK(path == nullptr || (*path != '\0' && std::strlen(path) <= kLongestPath &&
                                       std::strpbrk(path, " \t\r\n\v\f") == nullptr));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    fuzz::setLogging(!text.empty() && text[0] == '#');
    fuzz::putFile(kPath, text);
    const Ids ids = idsIn(text);

    SaneConfReader reader;
    FUZZ_CHECK(reader.LoadConf(kPath) == 1);
    lookUp(reader, ids);
    // What was handed out stays where it is, and an earlier model goes before a later one.
    const char* early = reader.GetFeatureFile(0x1234, 0x3260);
    FUZZ_CHECK(reader.LoadConf(kPath) == 1);
    reader.Add(0x1234, 0x3260, "late.ini", "Late");
    FUZZ_CHECK(early == nullptr || early == reader.GetFeatureFile(0x1234, 0x3260));
    lookUp(reader, ids);
    FUZZ_CHECK(reader.LoadConf("none.conf") == 0);
    return 0;
}
