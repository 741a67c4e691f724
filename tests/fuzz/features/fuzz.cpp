// SPDX-License-Identifier: LGPL-2.1-or-later
// The feature file of a model, and what is computed from it.
#include "Check.h"
#include "Input.h"
#include "Surroundings.h"

#include "FlatFileReader.h"
#include "ImageData.h"
#include "RawDataHandler.h"

#include <cmath>
#include <string>
#include <vector>

namespace {

constexpr char kPath[] = "model.ini";

constexpr const char* kKnownKeys[] = {
    "SCANOFFSETX",    "SCANOFFSETY", "SCANWIDTH",  "SCANHEIGHT", "PIXELS_PER_LINE", "LINES",
    "BYTES_PER_LINE", "CURRENTDPI",  "COLORDEPTH", "CURRENTTLX", "CURRENTTLY",      "CURRENTBRX",
    "CURRENTBRY",     "SCLIB",       "COLORLUT",   "RESOLUTIONS"};

// Whatever stands between ends of lines and signs of equality.
std::vector<std::string> keysIn(const std::string& text)
{
    std::vector<std::string> keys(std::begin(kKnownKeys), std::end(kKnownKeys));
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t end = std::min(text.find_first_of("=\n", at), text.size());
        keys.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return keys;
}

bool isSame(double a, double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

void lookUp(FlatFileReader& store, const std::string& key)
{
    const char* name = key.c_str();
    const int computed = store.GetComputedOption(name);
    const int number = store.GetIntOption(name);
    FUZZ_CHECK(computed == 0 || computed == number);
    FUZZ_CHECK(isSame(store.GetDoubleOption(name), store.GetDoubleOption(name)));
    fuzz::touch(store.GetStringOption(name));
}

// The settings of a scan as the store has them, in the image and in its manipulations.
void setUpScan(FlatFileReader& store)
{
    ImageData image;
    for (const int isAdf : {0, 1}) {
        FUZZ_CHECK(image.SetAttributes(&store, isAdf) == 1);
        const unsigned char line[64] = {};
        image.SetRawData(line, sizeof line);
    }
    RawDataHandler handler;
    handler.SetUp(&store);
    handler.Finish(&image);
    std::vector<unsigned char> out(static_cast<std::size_t>(image.GetProcessedDataSize()));
    image.GetProcessedData(out.data(), image.GetProcessedDataSize());
    fuzz::touch(out.data(), out.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    fuzz::setLogging(!text.empty() && text[0] == '#');
    fuzz::putFile(kPath, text);

    FlatFileReader store;
    FUZZ_CHECK(store.LoadConfig(kPath) == 1);
    for (const std::string& key : keysIn(text)) {
        lookUp(store, key);
    }
    store.DisplayConfig();
    store.DisplayComputedValues();
    setUpScan(store);
    return 0;
}
