// SPDX-License-Identifier: LGPL-2.1-or-later
#include "ImageFile.h"

#include <cctype>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include <jpeglib.h>
#include <png.h>

#include "Text.h"

namespace scansim {

namespace {

// Keeps a hostile header from asking for the whole memory.
constexpr std::uint64_t kMaxPixels = 1ULL << 28;

Bytes readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw InputError(path + ": cannot be read");
    }
    return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

Image makeImage(std::uint64_t width, std::uint64_t height, const std::string& path)
{
    if (width == 0 || height == 0 || width > kMaxPixels || height > kMaxPixels / width) {
        throw InputError(path + ": no picture of " + std::to_string(width) + " x " +
                         std::to_string(height));
    }
    Image image;
    image.width = static_cast<std::uint32_t>(width);
    image.height = static_cast<std::uint32_t>(height);
    image.rgb.resize(static_cast<std::size_t>(3 * width * height));
    return image;
}

Image loadPng(const Bytes& file, const std::string& path)
{
    png_image png;
    std::memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_memory(&png, file.data(), file.size()) == 0) {
        throw InputError(path + ": " + png.message);
    }
    png.format = PNG_FORMAT_RGB;
    Image image = makeImage(png.width, png.height, path);
    const png_color white = {255, 255, 255};
    if (png_image_finish_read(&png, &white, image.rgb.data(), 0, nullptr) == 0) {
        throw InputError(path + ": " + png.message);
    }
    return image;
}

struct JpegErrors {
    jpeg_error_mgr base;
    std::jmp_buf jump;
};

[[noreturn]] void leaveJpeg(j_common_ptr info)
{
    std::longjmp(reinterpret_cast<JpegErrors*>(info->err)->jump, 1);
}

// Between setjmp and longjmp nothing with a destructor may be made here; `image` is the caller's.
bool decodeJpeg(const Bytes& file, const std::string& path, jpeg_decompress_struct& info,
                JpegErrors& errors, Image& image)
{
    if (setjmp(errors.jump) != 0) {
        return false;
    }
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, file.data(), static_cast<unsigned long>(file.size()));
    jpeg_read_header(&info, TRUE);
    info.out_color_space = JCS_RGB;
    jpeg_start_decompress(&info);
    image = makeImage(info.output_width, info.output_height, path);
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = image.rgb.data() + std::size_t{3} * info.output_width * info.output_scanline;
        jpeg_read_scanlines(&info, &row, 1);
    }
    jpeg_finish_decompress(&info);
    return true;
}

Image loadJpeg(const Bytes& file, const std::string& path)
{
    jpeg_decompress_struct info{};
    JpegErrors errors{};
    info.err = jpeg_std_error(&errors.base);
    errors.base.error_exit = leaveJpeg;
    Image image;
    const bool isGood = decodeJpeg(file, path, info, errors, image);
    jpeg_destroy_decompress(&info);
    if (!isGood) {
        throw InputError(path + ": not a readable JPEG file");
    }
    return image;
}

// The next number of a PNM header; comments run to the end of their line.
std::uint32_t pnmNumber(const Bytes& file, std::size_t& at, const std::string& path)
{
    while (at < file.size() && (std::isspace(file[at]) != 0 || file[at] == '#')) {
        if (file[at] == '#') {
            while (at < file.size() && file[at] != '\n') {
                ++at;
            }
        } else {
            ++at;
        }
    }
    std::string digits;
    while (at < file.size() && std::isdigit(file[at]) != 0) {
        digits += static_cast<char>(file[at++]);
    }
    try {
        return parseNumber(digits, 1, 0xFFFFFF);
    } catch (const InputError&) {
        throw InputError(path + ": not a readable PNM file");
    }
}

Image loadPnm(const Bytes& file, const std::string& path)
{
    std::size_t at = 2;
    const std::uint32_t width = pnmNumber(file, at, path);
    const std::uint32_t height = pnmNumber(file, at, path);
    const std::uint32_t maximum = pnmNumber(file, at, path);
    const bool isColour = file[1] == '6';
    Image image = makeImage(width, height, path);
    const std::size_t size = isColour ? image.rgb.size() : image.rgb.size() / 3;
    if (maximum != 255 || file.size() < at + 1 + size) {
        throw InputError(path + ": not an 8-bit PNM file, or cut short");
    }
    const std::uint8_t* samples = file.data() + at + 1;
    for (std::size_t i = 0; i < image.rgb.size(); ++i) {
        image.rgb[i] = samples[isColour ? i : i / 3];
    }
    return image;
}

}  // namespace

Image loadImage(const std::string& path)
{
    const Bytes file = readFile(path);
    if (file.size() > 8 && png_sig_cmp(file.data(), 0, 8) == 0) {
        return loadPng(file, path);
    }
    if (file.size() > 2 && file[0] == 0xFF && file[1] == 0xD8) {
        return loadJpeg(file, path);
    }
    if (file.size() > 2 && file[0] == 'P' && (file[1] == '5' || file[1] == '6')) {
        return loadPnm(file, path);
    }
    throw InputError(path + ": neither PNG nor JPEG nor binary PNM");
}

}  // namespace scansim
