#pragma once
// Pictures and movies made by the tests themselves: JPEG and PNG with libvips, MP4 with FFmpeg.
#include <string>

namespace quorvane::testing {

// A noisy JPEG (so quality shows in its size). `orientation` other than 1 is stored as EXIF.
std::string makeJpeg(int width, int height, int orientation = 1);
// A JPEG whose left half is red and right half blue, with the EXIF orientation given.
std::string makeHalvesJpeg(int width, int height, int orientation);
// A PNG with an alpha channel: fully transparent left half, opaque white right half.
std::string makeTransparentPng(int width, int height);
// Writes an MP4 of `frames` frames at `fps` (H.264 when FFmpeg has libx264, else mpeg4);
// `rotation` degrees go in the track's display matrix. False when it could not.
bool makeMp4(const std::string& path, int width, int height, int fps, int frames, int rotation = 0);

struct Picture {
    int width = 0, height = 0, bands = 0;
    bool ok = false;
};
// The file as libvips reads it back.
Picture readPicture(const std::string& path);
// The pixel's first band value at (x, y) and its third.
int pixelBand(const std::string& path, int x, int y, int band);

}  // namespace quorvane::testing
