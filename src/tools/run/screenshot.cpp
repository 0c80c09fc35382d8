#include "tools/run/screenshot.h"

#include <png.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/common/outfile.h"
#include "vm/machine.h"

namespace {

// Largest picture read_png accepts (the screen and any scaled frame are far smaller).
constexpr int64_t kMaxPixels = int64_t{1} << 26;

uint8_t widen(unsigned v, int bits) { return static_cast<uint8_t>(v << (8 - bits) | v >> (2 * bits - 8)); }

}  // namespace

RgbImage guest_picture(const Frame& f) {
    RgbImage img;
    img.w = f.width;
    img.h = f.height;
    std::vector<uint32_t> px(static_cast<size_t>(img.w) * static_cast<size_t>(img.h));
    frame_to_xrgb8888(f, px.data());
    img.rgb.reserve(px.size() * 3);
    for (const uint32_t c : px) {
        img.rgb.push_back(static_cast<uint8_t>(c >> 16));
        img.rgb.push_back(static_cast<uint8_t>(c >> 8));
        img.rgb.push_back(static_cast<uint8_t>(c));
    }
    return img;
}

RgbImage presented_frame(const Frame& f, int w, int h) {
    RgbImage img;
    if (w <= 0 || h <= 0 || int64_t{w} * h > kMaxPixels) return img;
    std::vector<uint16_t> px(static_cast<size_t>(w) * static_cast<size_t>(h), 0);
    Surface16 s;
    s.pixels = reinterpret_cast<uint8_t*>(px.data());
    s.w = w;
    s.h = h;
    s.pitch = 2 * w;
    DmaRefresh(f, &s);
    img.w = w;
    img.h = h;
    img.rgb.reserve(px.size() * 3);
    for (const uint16_t c : px) {
        img.rgb.push_back(widen(c >> 11, 5));
        img.rgb.push_back(widen((c >> 5) & 63, 6));
        img.rgb.push_back(widen(c & 31, 5));
    }
    return img;
}

bool write_png(const RgbImage& image, const std::string& path, std::string* error) {
    if (image.w <= 0 || image.h <= 0) {
        *error = "empty picture";
        return false;
    }
    png_image png;
    std::memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    png.width = static_cast<png_uint_32>(image.w);
    png.height = static_cast<png_uint_32>(image.h);
    png.format = PNG_FORMAT_RGB;
    // Encoded in memory first: libpng's own file writer removes the path
    // when a write fails, even when it is not a file it made.
    png_alloc_size_t size = 0;
    std::string bytes;
    if (png_image_write_to_memory(&png, nullptr, &size, 0, image.rgb.data(), 0, nullptr)) {
        bytes.resize(size);
        if (!png_image_write_to_memory(&png, bytes.data(), &size, 0, image.rgb.data(), 0, nullptr)) size = 0;
    }
    if (size == 0) {
        *error = png.message[0] ? png.message : "cannot encode the picture";
        png_image_free(&png);
        return false;
    }
    bytes.resize(size);
    return write_output_file(path, bytes, error);
}

bool read_png(const std::string& path, RgbImage* image, std::string* error) {
    png_image png;
    std::memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&png, path.c_str())) {
        *error = png.message;
        return false;
    }
    if (int64_t{png.width} * png.height > kMaxPixels) {
        *error = "picture too large";
        png_image_free(&png);
        return false;
    }
    png.format = PNG_FORMAT_RGB;
    image->w = static_cast<int>(png.width);
    image->h = static_cast<int>(png.height);
    image->rgb.assign(PNG_IMAGE_SIZE(png), 0);
    const png_color black{0, 0, 0};
    if (!png_image_finish_read(&png, &black, image->rgb.data(), 0, nullptr)) {
        *error = png.message;
        png_image_free(&png);
        return false;
    }
    return true;
}

bool same_pixels(const RgbImage& a, const RgbImage& b, std::string* difference) {
    char text[160];
    if (a.w != b.w || a.h != b.h) {
        std::snprintf(text, sizeof text, "size %dx%d against %dx%d", a.w, a.h, b.w, b.h);
        *difference = text;
        return false;
    }
    const auto at = std::mismatch(a.rgb.begin(), a.rgb.end(), b.rgb.begin(), b.rgb.end());
    if (at.first == a.rgb.end()) return true;
    const size_t i = static_cast<size_t>(at.first - a.rgb.begin()) / 3;
    const uint8_t* p = &a.rgb[3 * i];
    const uint8_t* q = &b.rgb[3 * i];
    std::snprintf(text, sizeof text, "pixel (%zu,%zu) is #%02X%02X%02X against #%02X%02X%02X", i % size_t(a.w),
                  i / size_t(a.w), p[0], p[1], p[2], q[0], q[1], q[2]);
    *difference = text;
    return false;
}

bool dump_planes(const Machine& m, const std::string& path, std::string* error) {
    return write_output_file(path, std::string_view(reinterpret_cast<const char*>(m.ScreenBuffer), sizeof m.ScreenBuffer),
                             error);
}
