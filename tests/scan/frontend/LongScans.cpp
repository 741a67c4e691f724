// SPDX-License-Identifier: LGPL-2.1-or-later
// Long scans: a feeder full of sheets, and a page that is larger than what a process should hold.
#include "Commands.h"
#include "Page.h"
#include "Progress.h"
#include "Resources.h"

#include <cstdio>
#include <set>

namespace frontend {

namespace {

constexpr long kWarmUp = 10;
// What a transfer needs beside a reader's own block, however large the page.
constexpr long kPageRoomKb = 4096;

std::string onlyDevice(Session& session)
{
    const std::vector<std::string> names = session.list();
    require(names.size() == 1, "one device is needed");
    return names[0];
}

}  // namespace

// SHEETS DPI [SLACK]: every sheet of the feeder, on one handle, without a cancel in between. SLACK
// is how much the heap may be larger at the end: a decoder keeps room for the largest chunk of the
// last page.
void batch(const Arguments& arguments)
{
    const long count = number(arguments, 0);
    Session session;
    const std::string name = onlyDevice(session);
    const Scanner scanner(name);
    scanner.set("source", std::string("Automatic Document Feeder"));
    scanner.set("resolution", static_cast<SANE_Word>(number(arguments, 1)));
    Progress progress("sheets", count);
    std::vector<std::uint64_t> hashes(static_cast<std::size_t>(count));
    Resources early;
    std::uint64_t bytes = 0;
    for (long i = 1; i <= count; ++i) {
        const Digest page = scanWholePage(scanner, numberOf(name));
        bytes += page.bytes;
        hashes[static_cast<std::size_t>(i - 1)] = page.hash;
        progress.reached(i);
        if (i == std::min(kWarmUp, count / 2)) {
            early = Resources::now();
        }
    }
    const Resources late = Resources::now();
    require(scanner.start() == SANE_STATUS_NO_DOCS, "the feeder is not empty behind the last");
    scanner.cancel();
    std::printf("%ld sheets, %llu MB in %.1f s, %zu different ones\n", count,
                static_cast<unsigned long long>(bytes / 1000000), progress.seconds(),
                std::set<std::uint64_t>(hashes.begin(), hashes.end()).size());
    requireFlat(early, late, arguments.size() > 2 ? number(arguments, 2) : kHeapSlack);
}

// DPI: a page of the whole bed.
void page(const Arguments& arguments)
{
    Session session;
    const std::string name = onlyDevice(session);
    const Scanner scanner(name);
    scanner.set("resolution", static_cast<SANE_Word>(number(arguments, 0)));
    for (const char* corner : {"br-x", "br-y"}) {
        const SANE_Range& range = *scanner.descriptor(scanner.option(corner))->constraint.range;
        scanner.set(corner, range.max);
    }
    const SANE_Parameters parameters = scanner.parameters();
    std::printf("%d x %d pixels\n", parameters.pixels_per_line, parameters.lines);
    const Resources before = Resources::now();
    const Progress progress("", 0);
    const Digest whole = readWholePage(scanner);
    const double seconds = progress.seconds();
    const long peak = peakResidentKb();
    scanner.cancel();
    std::printf("%.0f MB in %.1f s; resident %ld KB before, %ld KB at most during it\n",
                1e-6 * static_cast<double>(whole.bytes), seconds, before.residentKb, peak);
    require(peak <= before.residentKb + kPageRoomKb, "the page takes memory");
    require(whole == takeRecorded(numberOf(name)), "the page is not the recorded one");
}

}  // namespace frontend
