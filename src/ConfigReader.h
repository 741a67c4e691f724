// SPDX-License-Identifier: LGPL-2.1-or-later
// The option store: everything known about the model and the current scan.
#pragma once

#include "CLogger.h"

#include <functional>
#include <map>
#include <string>

// Three maps of typed values, keyed by case-sensitive strings, and seven integer
// values that are computed from the scan window on every look-up:
//
//   SCANOFFSETX, SCANOFFSETY   top-left corner, dots from the origin
//   SCANWIDTH, SCANHEIGHT      bottom-right corner, dots from the origin
//   PIXELS_PER_LINE, LINES     extent of the window, dots
//   BYTES_PER_LINE             PIXELS_PER_LINE * COLORDEPTH
//
// CURRENTDPI is in dots per inch, the window CURRENTTLX, CURRENTTLY, CURRENTBRX,
// CURRENTBRY in millimetres.
class ConfigReader : public CLogger {
public:
    ConfigReader() = default;
    ConfigReader(const ConfigReader&) = delete;
    ConfigReader& operator=(const ConfigReader&) = delete;
    virtual ~ConfigReader();

    // Adds the entries of a file. 1: read to its end, 0: could not be opened.
    virtual int LoadConfig(const char* path) = 0;

    // The setters return 1 for a new key, 2 when a value was replaced.
    int SetIntOption(const char* key, int value);
    int SetDoubleOption(const char* key, double value);
    int SetStringOption(const char* key, const char* value);

    // The computed value where it is not 0, else the stored one, else 0.
    int GetIntOption(const char* key);
    // The stored value, or 0.0.
    double GetDoubleOption(const char* key);
    // The stored text, or null. It belongs to the store and stays valid until the
    // key is set again.
    const char* GetStringOption(const char* key);

    // Refreshes the operands of the computed values; absent ones become 0.
    void SetUpOperands();
    // The value of a computed key; 0 for any other key. A value that does not fit
    // is held at the limit of int.
    int GetComputedOption(const char* key);

    void DisplayConfig();
    void DisplayComputedValues();

private:
    template <typename Value>
    using OptionMap = std::map<std::string, Value, std::less<>>;

    template <typename Value, typename Given>
    static int store(OptionMap<Value>& options, const char* key, Given value);
    double intOperand(const char* key) const;
    double doubleOperand(const char* key) const;
    int dots(double millimetres) const;

    OptionMap<int> IntOptions;
    OptionMap<double> DoubleOptions;
    OptionMap<std::string> StringOptions;

    double iCurrentDPI = 0.0;
    double iColorDepth = 0.0;
    double iCurrentTlx = 0.0;
    double iCurrentTly = 0.0;
    double iCurrentBrx = 0.0;
    double iCurrentBry = 0.0;
};
