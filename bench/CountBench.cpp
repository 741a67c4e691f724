// SPDX-License-Identifier: LGPL-2.1-or-later
// What whole scans ask of the C library. Prints a line "NAME VALUE" for each figure.
#include "Counters.h"
#include "Scenes.h"

#include <cstdio>
#include <exception>

namespace {

using bench::Counts;
using bench::Scene;
using bench::Stage;

// Of the third page, when everything has grown as large as it gets.
Counts countPage(const Scene& scene, long* bytes)
{
    Stage stage(scene);
    stage.scan();
    bench::startCounting(stage.memberOfModule());
    stage.scan();
    *bytes = stage.pageBytes();
    return bench::stopCounting();
}

void report(const char* name, double value)
{
    std::printf("%s %.6g\n", name, value);
}

double copiesPerByte(const Scene& scene)
{
    long bytes = 0;
    const Counts counts = countPage(scene, &bytes);
    return static_cast<double>(counts.bytesCopied) / static_cast<double>(bytes);
}

void measureRaw(const std::string& paper)
{
    Scene scene = bench::rawScene(paper, 600);
    long bytes = 0;
    const Counts whole = countPage(scene, &bytes);
    scene.job.height /= 2;
    const Counts half = countPage(scene, &bytes);
    report("raw-copies", copiesPerByte(scene));
    report("raw-allocations", static_cast<double>(whole.allocations));
    report("raw-allocations-more-for-twice-the-lines",
           static_cast<double>(whole.allocations - half.allocations));
    report("raw-getpids", static_cast<double>(whole.getpids));
    report("raw-getenvs-per-MB",
           static_cast<double>(whole.getenvs) / (static_cast<double>(bytes) * 1e-6));
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
        report("compressed-copies", copiesPerByte(bench::compressedScene(argv[1])));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "count_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
