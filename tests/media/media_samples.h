#pragma once
// Pictures made by the tests themselves with libvips, and reading them back.
#include <string>
#include <vector>

namespace quorvane::testing {

// A noisy JPEG (so quality shows in its size). `orientation` other than 1 is stored as EXIF.
std::string makeJpeg(int width, int height, int orientation = 1);
// A picture of two flat halves, encoded by `suffix` (".jpg", ".png") with the EXIF orientation given.
std::string makeHalves(int width, int height, const std::vector<double>& left, const std::vector<double>& right,
                       const char* suffix, int orientation = 1);

struct Picture {
    int width = 0, height = 0, bands = 0;
    bool ok = false;
};
// The file as libvips reads it back.
Picture readPicture(const std::string& path);
// The pixel's value in `band` at (x, y).
int pixelBand(const std::string& path, int x, int y, int band);

}  // namespace quorvane::testing
