// SPDX-License-Identifier: LGPL-2.1-or-later
// What the options mean, for comparison with what the backend makes of them.
#pragma once

#include "Sane.h"

#include <string>

namespace frontend {

// A value for an option: text for those that are texts.
struct Change {
    std::string option;
    SANE_Word word = 0;
    std::string text;
};

// What a change, or a start, has to come to.
struct Outcome {
    SANE_Status status = SANE_STATUS_GOOD;
    SANE_Int info = 0;
    SANE_Word word = 0;  // the value as it is given back
};

struct Extent {
    int pixels = 0;
    int lines = 0;
};

class Model {
public:
    // Of a device that has just been opened; takes the values that it begins with.
    explicit Model(const Scanner& scanner);

    Outcome change(const Change& change);
    // What the parameters say. Asking for them ends a preview's own resolution.
    Extent parameters();
    // What the start of a frame comes to while there is paper in the feeder.
    SANE_Status start();
    // Of the frame that was started last.
    Extent frame() const { return frame_; }

    bool isPreview() const { return isPreview_; }
    bool isColour() const { return mode_ == "24-bit Color"; }
    // The area is known to a 65536th of a millimetre only, so that a pixel more or less may come.
    bool isRounded() const { return isRounded_; }

    // Throws Failed where the scanner gives another value than the model has.
    void compare() const;

private:
    Outcome changeWord(const Change& change);
    Outcome changeText(const Change& change);
    void readArea();
    SANE_Status checkArea() const;
    SANE_Status checkFeeder() const;
    void mirror();
    Extent extentAt(int dpi) const;
    double& corner(const std::string& option);

    const Scanner& scanner_;
    int dpi_ = 0;     // of the next frame
    int chosen_ = 0;  // by the user
    std::string mode_;
    std::string source_;
    std::string media_;
    bool isPreview_ = false;
    double left_ = 0;
    double top_ = 0;
    double right_ = 0;
    double bottom_ = 0;
    double edge_ = 0;  // the right one of the bed
    bool isRounded_ = true;
    Extent frame_;
};

}  // namespace frontend
