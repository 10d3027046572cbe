#include "api/media/ImageCodec.h"

#include <vips/vips8>

#include <algorithm>
#include <cmath>
#include <mutex>

namespace quorvane::media {
namespace {

thread_local std::string lastError;

void startVips() {
    static std::once_flag once;
    std::call_once(once, [] {
        VIPS_INIT("quorvane");
        // Cached operations would keep source buffers and pixels alive after each request.
        vips_cache_set_max(0);
    });
}

// Runs a libvips step; its exceptions stay here and become the thread's last error.
template <class F>
auto guarded(F&& step) -> decltype(step()) {
    try {
        startVips();
        return step();
    } catch (const vips::VError& error) {
        lastError = error.what();
    } catch (const std::exception& error) {
        lastError = error.what();
    }
    vips_error_clear();
    return {};
}

int orientationOf(const vips::VImage& image) {
    if (image.get_typeof(VIPS_META_ORIENTATION) == 0) return 1;
    return image.get_int(VIPS_META_ORIENTATION);
}

vips::VImage open(const std::string& data) {
    return vips::VImage::new_from_buffer(data, "", vips::VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL));
}

// 8-bit sRGB (or grey) with its alpha, whatever the source's depth and colour space.
vips::VImage standardised(vips::VImage image) {
    auto space = image.interpretation();
    if (space != VIPS_INTERPRETATION_sRGB && space != VIPS_INTERPRETATION_B_W)
        image = image.colourspace(VIPS_INTERPRETATION_sRGB);
    if (image.format() != VIPS_FORMAT_UCHAR) image = image.cast(VIPS_FORMAT_UCHAR);
    return image;
}

std::string takeBlob(VipsBlob* blob) {
    size_t length = 0;
    const void* bytes = vips_blob_get(blob, &length);
    std::string out(static_cast<const char*>(bytes), length);
    vips_area_unref(VIPS_AREA(blob));
    return out;
}

}  // namespace

platform::ImagePtr decodeImage(const std::string& data) {
    if (data.empty()) {
        lastError = "no image data";
        return nullptr;
    }
    return guarded([&]() -> platform::ImagePtr {
        vips::VImage header = open(data);
        auto image = std::make_shared<platform::Image>();
        bool turned = orientationOf(header) >= 5;  // 5...8 are the quarter turns
        image->width = turned ? header.height() : header.width();
        image->height = turned ? header.width() : header.height();
        image->format = vips_foreign_find_load_buffer(data.data(), data.size());
        image->data = data;
        return image;
    });
}

platform::ImagePtr drawImage(const platform::ImagePtr& image, double width, double height) {
    if (!image || !(width >= 1) || !(height >= 1)) {
        lastError = "nothing to draw";
        return nullptr;
    }
    int w = static_cast<int>(std::ceil(width));
    int h = static_cast<int>(std::ceil(height));
    return guarded([&]() -> platform::ImagePtr {
        // Wraps the caller's bytes without copying; they outlive the pipeline.
        VipsBlob* source = vips_blob_new(nullptr, image->data.data(), image->data.size());
        vips::VImage drawn;
        try {
            drawn = vips::VImage::thumbnail_buffer(source, w, vips::VImage::option()
                                                                  ->set("height", h)
                                                                  ->set("size", VIPS_SIZE_FORCE)
                                                                  ->set("fail_on", VIPS_FAIL_ON_ERROR));
            if (drawn.width() != w || drawn.height() != h)
                drawn = drawn.resize(double(w) / drawn.width(), vips::VImage::option()->set("vscale", double(h) / drawn.height()));
            drawn = standardised(drawn);
        } catch (...) {
            vips_area_unref(VIPS_AREA(source));
            throw;
        }
        auto out = std::make_shared<platform::Image>();
        out->data = takeBlob(drawn.pngsave_buffer(vips::VImage::option()->set("compression", 1)));
        vips_area_unref(VIPS_AREA(source));
        out->width = w;
        out->height = h;
        out->format = "png";
        return out;
    });
}

std::optional<std::string> jpegRepresentation(const platform::ImagePtr& image, double quality) {
    if (!image || image->data.empty()) {
        lastError = "no image";
        return std::nullopt;
    }
    return guarded([&]() -> std::optional<std::string> {
        vips::VImage picture = open(image->data);
        if (orientationOf(picture) != 1) picture = picture.autorot();
        picture = standardised(picture);
        if (picture.has_alpha()) picture = picture.flatten();
        int q = std::clamp(static_cast<int>(std::lround(quality * 100)), 1, 100);
        return takeBlob(picture.jpegsave_buffer(vips::VImage::option()->set("Q", q)));
    });
}

std::string lastImageError() { return lastError; }

}  // namespace quorvane::media
