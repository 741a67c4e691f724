// SPDX-License-Identifier: LGPL-2.1-or-later
// An in-place manipulation of image lines: whole ones, and what there is of the last of a page.
#pragma once

class ImageData;

class IManipulation {
public:
    virtual ~IManipulation() = default;

    // Works on the first len raw bytes of img. 1: done, 0: nothing to do.
    virtual int Perform(ImageData* img, int len) = 0;
};
