// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ConfigReader.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

namespace {

constexpr double kMillimetresPerInch = 25.4;
constexpr int kIntMax = std::numeric_limits<int>::max();
constexpr int kIntMin = std::numeric_limits<int>::min();

// In the order in which DisplayComputedValues lists them.
constexpr const char* kComputedKeys[] = {
    "SCANOFFSETX",     "SCANOFFSETY", "SCANWIDTH",      "SCANHEIGHT",
    "PIXELS_PER_LINE", "LINES",       "BYTES_PER_LINE",
};

int truncated(double value)
{
    if (std::isnan(value)) {
        return 0;
    }
    return static_cast<int>(
        std::clamp(value, static_cast<double>(kIntMin), static_cast<double>(kIntMax)));
}

// The x87 unit of 32-bit processors calculates with longer numbers, which would make some windows a
// line shorter; what has been in memory is a double anywhere.
double asDouble(double value)
{
    const volatile double stored = value;
    return stored;
}

int product(int a, int b)
{
    const std::int64_t value = static_cast<std::int64_t>(a) * b;
    return static_cast<int>(std::clamp<std::int64_t>(value, kIntMin, kIntMax));
}

bool isComputed(const char* key)
{
    return std::any_of(std::begin(kComputedKeys), std::end(kComputedKeys),
                       [key](const char* name) { return strcmp(key, name) == 0; });
}

}  // namespace

ConfigReader::~ConfigReader() = default;

template <typename Value, typename Given>
int ConfigReader::store(OptionMap<Value>& options, const char* key, Given value)
{
    return options.insert_or_assign(key, value).second ? 1 : 2;
}

int ConfigReader::SetIntOption(const char* key, int value)
{
    return store(IntOptions, key, value);
}

int ConfigReader::SetDoubleOption(const char* key, double value)
{
    return store(DoubleOptions, key, value);
}

int ConfigReader::SetStringOption(const char* key, const char* value)
{
    return store(StringOptions, key, value != nullptr ? value : "");
}

int ConfigReader::GetIntOption(const char* key)
{
    // A stored value under a computed name shows only while the computed one is 0.
    if (const int computed = GetComputedOption(key); computed != 0) {
        return computed;
    }
    const auto found = IntOptions.find(std::string_view(key));
    return found != IntOptions.end() ? found->second : 0;
}

double ConfigReader::GetDoubleOption(const char* key)
{
    return doubleOperand(key);
}

const char* ConfigReader::GetStringOption(const char* key)
{
    const auto found = StringOptions.find(std::string_view(key));
    return found != StringOptions.end() ? found->second.c_str() : nullptr;
}

double ConfigReader::intOperand(const char* key) const
{
    const auto found = IntOptions.find(std::string_view(key));
    return found != IntOptions.end() ? static_cast<double>(found->second) : 0.0;
}

double ConfigReader::doubleOperand(const char* key) const
{
    const auto found = DoubleOptions.find(std::string_view(key));
    return found != DoubleOptions.end() ? found->second : 0.0;
}

void ConfigReader::SetUpOperands()
{
    iCurrentDPI = intOperand("CURRENTDPI");
    iColorDepth = intOperand("COLORDEPTH");
    iCurrentTlx = doubleOperand("CURRENTTLX");
    iCurrentBrx = doubleOperand("CURRENTBRX");
    iCurrentTly = doubleOperand("CURRENTTLY");
    iCurrentBry = doubleOperand("CURRENTBRY");
}

// The division comes first: the order decides the last bit, and so the rounding.
int ConfigReader::dots(double millimetres) const
{
    return truncated(asDouble(iCurrentDPI * asDouble(millimetres / kMillimetresPerInch)));
}

int ConfigReader::GetComputedOption(const char* key)
{
    if (!isComputed(key)) {
        return 0;
    }
    SetUpOperands();

    const auto is = [key](const char* name) { return strcmp(key, name) == 0; };
    int value = 0;
    if (is("SCANOFFSETX")) {
        value = dots(iCurrentTlx);
    } else if (is("SCANOFFSETY")) {
        value = dots(iCurrentTly);
    } else if (is("SCANWIDTH")) {
        value = dots(iCurrentBrx);
    } else if (is("SCANHEIGHT")) {
        value = dots(iCurrentBry);
    } else if (is("PIXELS_PER_LINE")) {
        value = dots(iCurrentBrx - iCurrentTlx);
    } else if (is("LINES")) {
        value = dots(iCurrentBry - iCurrentTly);
    } else {
        value = product(dots(iCurrentBrx - iCurrentTlx), truncated(iColorDepth));
    }
    log_debug("Computed option: %s = %d", key, value);
    return value;
}

void ConfigReader::DisplayConfig()
{
    log_debug("Display Config Options");
    log_debug("Integer Options");
    for (const auto& [key, value] : IntOptions) {
        log_debug("%s = %d", key.c_str(), value);
    }
    log_debug("Double Options");
    for (const auto& [key, value] : DoubleOptions) {
        log_debug("%s = %f", key.c_str(), value);
    }
    log_debug("String Options");
    for (const auto& [key, value] : StringOptions) {
        log_debug("%s = %s", key.c_str(), value.c_str());
    }
    log_debug("End of Config Options");
}

void ConfigReader::DisplayComputedValues()
{
    log_debug("Display Computed Values:");
    for (const char* key : kComputedKeys) {
        GetIntOption(key);
    }
}
