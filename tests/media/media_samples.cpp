#include "media_samples.h"

#include <vips/vips8>

namespace quorvane::testing {
namespace {

void startVips() {
    static bool started = [] { return VIPS_INIT("media_tests") == 0; }();
    (void)started;
}

std::string save(vips::VImage image, const char* suffix, int orientation) {
    image = image.copy();
    if (orientation != 1) image.set(VIPS_META_ORIENTATION, orientation);
    void* buffer = nullptr;
    size_t length = 0;
    image.write_to_buffer(suffix, &buffer, &length, vips::VImage::option()->set("Q", 92));
    std::string out(static_cast<char*>(buffer), length);
    g_free(buffer);
    return out;
}

}  // namespace

std::string makeJpeg(int width, int height, int orientation) {
    startVips();
    auto noise = vips::VImage::gaussnoise(width, height, vips::VImage::option()->set("sigma", 40));
    auto rgb = noise.bandjoin({noise.rot180().flip(VIPS_DIRECTION_HORIZONTAL), noise.flip(VIPS_DIRECTION_VERTICAL)});
    return save(rgb.cast(VIPS_FORMAT_UCHAR).copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB)),
                ".jpg", orientation);
}

std::string makeHalves(int width, int height, const std::vector<double>& left, const std::vector<double>& right,
                       const char* suffix, int orientation) {
    startVips();
    auto image = vips::VImage::black(width / 2, height)
                     .new_from_image(left)
                     .insert(vips::VImage::black(width - width / 2, height).new_from_image(right), width / 2, 0,
                             vips::VImage::option()->set("expand", true));
    return save(image.cast(VIPS_FORMAT_UCHAR).copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB)),
                suffix, orientation);
}

Picture readPicture(const std::string& path) {
    startVips();
    try {
        auto image = vips::VImage::new_from_file(path.c_str());
        image.avg();  // decodes every pixel: a broken file fails here
        return {image.width(), image.height(), image.bands(), true};
    } catch (const vips::VError&) {
        return {};
    }
}

int pixelBand(const std::string& path, int x, int y, int band) {
    startVips();
    auto values = vips::VImage::new_from_file(path.c_str()).getpoint(x, y);
    return static_cast<int>(values.at(band));
}

}  // namespace quorvane::testing
