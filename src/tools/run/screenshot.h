// Pictures of the guest screen for the headless runner: the visible plane at
// guest size, the frame a window of a given size would show, PNG files of
// either, and the raw screen planes for exact comparisons.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct Machine;
struct Frame;

// 8-bit red, green, blue per pixel, rows top to bottom, no padding.
struct RgbImage {
    int w = 0, h = 0;
    std::vector<uint8_t> rgb;
};

// The frame at guest size, each pixel through the guest palette's 8-bit
// triplets, so the colours are the ones the guest set (0xAD,0xC1,0xAD for
// mono paper), not their 5-6-5 form.
RgbImage guest_picture(const Frame& f);

// What a w x h host surface receives: DmaRefresh on a black surface, each
// 5-6-5 pixel widened to 8 bits per channel by repeating its top bits.
RgbImage presented_frame(const Frame& f, int w, int h);

bool write_png(const RgbImage& image, const std::string& path, std::string* error);
// Reads any PNG as 8-bit RGB (alpha composed onto black).
bool read_png(const std::string& path, RgbImage* image, std::string* error);
// True when both have the same size and pixels; otherwise says where they differ.
bool same_pixels(const RgbImage& a, const RgbImage& b, std::string* difference);

// Writes both planes of ScreenBuffer (153,600 bytes, visible plane first).
bool dump_planes(const Machine& m, const std::string& path, std::string* error);
