// SPDX-License-Identifier: LGPL-2.1-or-later
// What whole scans ask of the C library. Prints a line "NAME VALUE" for each figure.
#include "Counters.h"
#include "Scenes.h"

#include <cstdio>
#include <exception>
#include <string>

namespace {

using bench::Counts;
using bench::Scene;
using bench::Stage;

struct Page {
    Counts counts;
    long bytes;
};

// The third page, when everything has grown as large as it gets.
Page countPage(const Scene& scene)
{
    Stage stage(scene);
    stage.scan();
    bench::startCounting(stage.memberOfModule());
    stage.scan();
    return {bench::stopCounting(), stage.pageBytes()};
}

void report(const std::string& name, double value)
{
    std::printf("%s %.6g\n", name.c_str(), value);
    std::fflush(stdout);
}

void reportCopies(const std::string& name, const Page& page)
{
    report(name + "-copies",
           static_cast<double>(page.counts.bytesCopied) / static_cast<double>(page.bytes));
    report(name + "-allocations", static_cast<double>(page.counts.allocations));
}

void measureRaw(const std::string& paper)
{
    Scene scene = bench::rawScene(paper, 600);
    scene.job.height = 200;
    const Page whole = countPage(scene);
    scene.job.height = 100;
    const Page half = countPage(scene);
    reportCopies("raw", whole);
    report("raw-allocations-more-for-twice-the-lines",
           static_cast<double>(whole.counts.allocations - half.counts.allocations));
    report("raw-getpids", static_cast<double>(whole.counts.getpids));
    report("raw-getenvs-per-MB",
           static_cast<double>(whole.counts.getenvs) / (static_cast<double>(whole.bytes) * 1e-6));
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "Usage: count_bench PHOTO BLANK  (pages as PNM files)\n");
        return 2;
    }
    try {
        measureRaw(argv[2]);
        reportCopies("network", countPage(bench::networkScene(argv[2])));
        reportCopies("compressed", countPage(bench::compressedScene(argv[1])));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "count_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
