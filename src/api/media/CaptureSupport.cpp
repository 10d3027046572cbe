#include "api/media/CaptureSupport.h"

#include <filesystem>

#include "api/media/ImageCodec.h"
#include "api/media/ImageTool.h"
#include "foundation/log.h"
#include "platform/platform.h"

namespace quorvane::media {

QuorvaneApiManager::Size screenWideSize(const platform::ImagePtr& image) {
    auto device = platform::Platform::current().device;
    float width = device ? static_cast<float>(device->mainScreenBounds().width) : 0.0f;
    float height = static_cast<float>(image->height) * (width / static_cast<float>(image->width));
    return {width, height};
}

std::optional<Value> saveScreenWideJpeg(const platform::ImagePtr& image, double quality, bool recompress) {
    if (!image || image->width <= 0 || image->height <= 0) {
        foundation::logLine("media: the picture cannot be read: " + lastImageError());
        return std::nullopt;
    }
    auto size = screenWideSize(image);
    auto jpeg = jpegRepresentation(QuorvaneApiManager::scaleToSize(image, size), quality);
    if (jpeg && recompress) jpeg = ImageTool::compressImage(*jpeg, 0.8);
    if (!jpeg) {
        foundation::logLine("media: the picture cannot be read: " + lastImageError());
        return std::nullopt;
    }
    std::string path = QuorvaneApiManager::saveFile(*jpeg, kMediaDirectory, "jpg");
    std::error_code ignored;
    auto bytes = std::filesystem::file_size(path, ignored);
    Value dictionary = Value::object();
    dictionary["path"] = path;
    dictionary["size"] = static_cast<long long>(ignored ? 0 : bytes / 1000);
    dictionary["type"] = "jpg";
    dictionary["width"] = static_cast<float>(size.width);
    dictionary["height"] = static_cast<float>(size.height);
    return dictionary;
}

void presentAlbumPicker(const Controller& controller, const std::shared_ptr<platform::AlbumPickerController>& picker,
                        std::function<void()> cancelled,
                        std::function<void(std::vector<platform::MediaAsset>)> finished) {
    std::weak_ptr<platform::AlbumPickerController> weak = picker;
    auto dismissThen = [weak](std::function<void()> next) {
        auto self = weak.lock();
        auto presenter = self ? self->presentingController() : nullptr;
        if (presenter) presenter->dismiss(true, std::move(next));
        else next();
    };
    picker->onCancel = [dismissThen, cancelled](const std::vector<platform::MediaAsset>&) { dismissThen(cancelled); };
    picker->onFinish = [dismissThen, finished](const std::vector<platform::MediaAsset>& assets) {
        dismissThen([finished, assets] { finished(assets); });
    };
    controller->present(picker, true, [picker] { platform::MediaPicker::current()->startAlbumPicker(picker); });
}

}  // namespace quorvane::media
