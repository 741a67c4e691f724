// SPDX-License-Identifier: LGPL-2.1-or-later
// A colour-correction library for tests. Its functions write down how they were called
// at the front of the image data, so that a test needs no second handle on the library.
#define EXPORT __attribute__((visibility("default")))

// Adds the first byte of the table to the pixel bytes of every line.
EXPORT int AddFirst(unsigned char* data, int width, int lines, int stride, int isColour,
                    unsigned char* lut, int lutSize)
{
    int line, i;
    (void)lutSize;
    for (line = 0; line < lines; ++line) {
        for (i = 0; i < width * (isColour ? 3 : 1); ++i) {
            data[line * stride + i] = (unsigned char)(data[line * stride + i] + lut[0]);
        }
    }
    return 0;
}

// Six bytes: width, lines, stride, colour, size of the table, whether there is a table.
EXPORT int Arguments(unsigned char* data, int width, int lines, int stride, int isColour,
                     unsigned char* lut, int lutSize)
{
    data[0] = (unsigned char)width;
    data[1] = (unsigned char)lines;
    data[2] = (unsigned char)stride;
    data[3] = (unsigned char)isColour;
    data[4] = (unsigned char)lutSize;
    data[5] = lut != 0;
    return 0;
}

// Spoils the first byte, then fails.
EXPORT int Fail(unsigned char* data, int width, int lines, int stride, int isColour,
                unsigned char* lut, int lutSize)
{
    (void)width, (void)lines, (void)stride, (void)isColour, (void)lut, (void)lutSize;
    data[0] = 0xEE;
    return 42;
}
