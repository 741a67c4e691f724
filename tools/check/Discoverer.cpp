// SPDX-License-Identifier: LGPL-2.1-or-later
#include "Discoverer.h"

#include "Discovery.h"
#include "SaneConfReader.h"
#include "Text.h"
#include "UsbCheck.h"

#include <algorithm>
#include <chrono>

namespace check {

namespace {

constexpr std::chrono::seconds kTime{10};
constexpr int kLastId = 0xFFFF;

// Knows every product of the two makers, so that the search drops none for its IDs.
void knowAll(SaneConfReader& reader)
{
    for (const int vendor : {SCANLIB_QUILLON_VID, SCANLIB_OXLE_VID}) {
        for (int product = 0; product <= kLastId; ++product) {
            reader.Add(vendor, product, "/", "");
        }
    }
}

bool isSame(const Answer& a, const Answer& b)
{
    return a.mac == b.mac && a.ip == b.ip && a.vendor == b.vendor && a.product == b.product;
}

Answer answerOf(const NValueObjects& scanner)
{
    return {scanner.getModel(), scanner.getManufacturer(), scanner.getIp(),
            scanner.getMac(),   scanner.getVid(),          scanner.getPid()};
}

std::string describe(const Answer& answer)
{
    return quoted(answer.name) + " (" + hexId(answer.vendor) + ":" + hexId(answer.product) +
           ") at " + printable(answer.ip);
}

}  // namespace

Search Search::run()
{
    SaneConfReader reader;
    knowAll(reader);
    std::vector<NValueObjects> found;
    Search search;
    search.isDone = Discovery(kTime).search(&reader, &found) == Discovery::SEARCHED;
    for (const NValueObjects& scanner : found) {
        const Answer answer = answerOf(scanner);
        const bool isNew =
            std::none_of(search.answers.begin(), search.answers.end(),
                         [&answer](const Answer& other) { return isSame(answer, other); });
        if (isNew) {
            search.answers.push_back(answer);
        }
    }
    return search;
}

void judgeSearch(const Search& search, const std::vector<ConfFile>& files, Findings& findings)
{
    Voice voice(findings, "network");
    if (!search.isDone) {
        voice.error(0, "search-failed", "the search of the network could not be made.",
                    "Remove what stands in the way of the network (see above), then try again.");
        return;
    }
    if (search.answers.empty()) {
        voice.warning(0, "no-answer", "no scanner has answered on the network within ten seconds.",
                      "Switch the scanner on and see that it is in the same network; let the "
                      "firewall accept UDP port 5353.");
    }
    for (const Answer& answer : search.answers) {
        std::string file;
        if (findModel(files, answer.vendor, answer.product, &file) != nullptr) {
            voice.note(0, "answer-configured",
                       describe(answer) + " has answered; its line is in " + printable(file) + ".");
            continue;
        }
        const Suggestion add = suggestLine(files, answer.vendor, answer.product, answer.name);
        voice.warning(
            0, "answer-not-configured",
            describe(answer) + " has answered, but no line names it; this line would: " + add.line,
            "Put this line into " + add.file + ": " + add.line +
                "  (with the feature file that fits your scanner best).");
    }
}

}  // namespace check
