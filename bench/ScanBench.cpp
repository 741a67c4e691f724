// SPDX-License-Identifier: LGPL-2.1-or-later
// Whole scans in one process, from the transport's buffer to the front end's, beside what copies
// the same bytes or decodes the same page. Prints a line "NAME VALUE" for each figure.
#include "Decoders.h"
#include "Ratio.h"
#include "Scenes.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <map>

namespace {

using bench::Scene;
using bench::Stage;

constexpr int kRounds = 15;
constexpr int kTurns = 5;
constexpr std::size_t kMostBytes = 8192;  // of a transfer or a frame

void report(const char* name, double value)
{
    std::printf("%s %.4g\n", name, value);
    std::fflush(stdout);
}

// Every transfer in at one end, and its image bytes out at the other, without anything in between.
// frame: what a transfer is received from, or null where it comes by itself.
void copyAll(const standin::Recording& recording, unsigned char* frame)
{
    constexpr std::size_t kBlockHeader = 9;
    static unsigned char transfer[kMostBytes];
    static unsigned char read[32768];
    std::size_t at = 0;
    for (const auto& exchange : recording.exchanges()) {
        for (const std::uint32_t number : exchange.answers) {
            const standin::Bytes& bytes = recording.transfer(number);
            const std::size_t imageBytes = bytes.size() - std::min(bytes.size(), kBlockHeader);
            if (at + imageBytes > sizeof read) {
                at = 0;
            }
            if (frame != nullptr) {
                memcpy(frame, bytes.data(), bytes.size());
                asm volatile("" : : "r"(frame) : "memory");
            }
            memcpy(transfer, frame != nullptr ? frame : bytes.data(), bytes.size());
            asm volatile("" : : "r"(transfer) : "memory");
            memcpy(read + at, transfer + kBlockHeader, imageBytes);
            asm volatile("" : : "r"(read) : "memory");
            at += imageBytes;
        }
    }
}

void measureRaw(const std::string& paper)
{
    Stage stage(bench::rawScene(paper, 600));
    report("raw-to-memcpy", bench::ratioOf([&] { stage.scan(); },
                                           [&] { copyAll(stage.recording(), nullptr); }, kRounds));
}

void measureNetwork(const std::string& paper)
{
    static unsigned char frame[kMostBytes];
    Stage stage(bench::networkScene(paper));
    report(
        "network-to-memcpy",
        bench::ratioOf([&] { stage.scan(); }, [&] { copyAll(stage.recording(), frame); }, kRounds));
}

void measureCompressed(const std::string& paper)
{
    Scene scene = bench::compressedScene(paper);
    scene.job.height = 80;
    Stage stage(scene);
    const samples::Image page = {stage.width(), stage.lines(), 3, stage.scanWhole()};
    const samples::Bytes file = samples::encodeFile(page, 90);
    bench::FileDecoder libjpeg(file, static_cast<std::size_t>(page.width) * 3);
    report("compressed-to-libjpeg",
           bench::ratioOf([&] { libjpeg.decode(); }, [&] { stage.scan(); }, kRounds));
}

struct PixelCosts {
    std::vector<double> seconds;
    std::vector<double> ratios;
};

void scanPixels(const std::string& paper, int dpi, PixelCosts* costs)
{
    Scene scene = bench::rawScene(paper, dpi);
    // The same number of bytes at each resolution but the lowest two, which the bed limits.
    scene.job.width = 60960.0 / dpi;
    scene.job.height = 60960.0 / dpi;
    Stage stage(scene);
    const double pixels = static_cast<double>(stage.pageBytes()) / 3;
    for (int i = 0; i < kRounds; ++i) {
        const double scan = bench::cpuSeconds([&] { stage.scan(); });
        const double copies = bench::cpuSeconds([&] { copyAll(stage.recording(), nullptr); });
        costs->seconds.push_back(scan / pixels);
        costs->ratios.push_back(scan / copies);
    }
}

// Each page beside the copies of its own bytes, and all in turn: the clock of a processor, or who
// shares it, changes from one second to the next.
void measurePixels(const std::string& paper)
{
    std::map<int, PixelCosts> costs;
    for (int turn = 0; turn < kTurns; ++turn) {
        for (const int dpi : {75, 150, 300, 600, 1200}) {
            scanPixels(paper, dpi, &costs[dpi]);
        }
    }
    for (const auto& [dpi, cost] : costs) {
        const std::string name = "pixel-" + std::to_string(dpi);
        report((name + "-ns").c_str(), bench::median(cost.seconds) * 1e9);
        report((name + "-to-memcpy").c_str(), bench::median(cost.ratios));
    }
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "Usage: scan_bench PHOTO BLANK  (pages as PNM files)\n");
        return 2;
    }
    try {
        measureRaw(argv[2]);
        measureNetwork(argv[2]);
        measureCompressed(argv[1]);
        measurePixels(argv[2]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "scan_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
