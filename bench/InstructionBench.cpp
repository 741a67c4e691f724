// SPDX-License-Identifier: LGPL-2.1-or-later
// One scan in counted(), for valgrind's callgrind, which counts instructions there only. Argument:
// the scene, and the folder of the modules unless it is the usual one. Prints the bytes of the
// page.
#include "Scenes.h"

#include <cstdio>
#include <exception>
#include <functional>
#include <map>

namespace {

// As large as it takes for what happens once a page not to count.
constexpr double kMillimetres = 30;

const std::map<std::string, std::function<bench::Scene()>>& scenes()
{
    static const std::map<std::string, std::function<bench::Scene()>> all = {
        {"raw", [] { return bench::rawScene("chart", 600); }},
        {"network", [] { return bench::networkScene("chart"); }},
        {"compressed", [] { return bench::compressedScene("chart"); }},
        {"interleaved", bench::interleavedScene},
    };
    return all;
}

}  // namespace

// Found by its name.
extern "C" __attribute__((noinline, visibility("default"))) void counted(bench::Stage* stage)
{
    stage->scan();
}

int main(int argc, char** argv)
{
    const auto found = scenes().find(argc == 2 || argc == 3 ? argv[1] : "");
    if (found == scenes().end()) {
        std::fprintf(stderr,
                     "Usage: instruction_bench raw|network|compressed|interleaved [MODULES]\n");
        return 2;
    }
    try {
        bench::Scene scene = found->second();
        scene.job.height = kMillimetres;
        if (argc == 3) {
            scene.modules = argv[2];
        }
        bench::Stage stage(scene);
        stage.scan();
        counted(&stage);
        std::printf("%ld\n", stage.pageBytes());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "instruction_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
