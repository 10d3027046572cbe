#pragma once
// Pictures made by the tests themselves with libvips, and reading them back.
#include <string>

namespace quorvane::testing {

// A noisy JPEG (so quality shows in its size). `orientation` other than 1 is stored as EXIF.
std::string makeJpeg(int width, int height, int orientation = 1);
// A JPEG whose left half is red and right half blue, with the EXIF orientation given.
std::string makeHalvesJpeg(int width, int height, int orientation);
// A PNG with an alpha channel: fully transparent left half, opaque white right half.
std::string makeTransparentPng(int width, int height);

struct Picture {
    int width = 0, height = 0, bands = 0;
    bool ok = false;
};
// The file as libvips reads it back.
Picture readPicture(const std::string& path);
// The pixel's first band value at (x, y) and its third.
int pixelBand(const std::string& path, int x, int y, int band);

}  // namespace quorvane::testing
