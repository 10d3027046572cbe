#pragma once
// Pieces the capture operations share: the screen-wide scaling of pictures and their dictionaries,
// and the album picker's presentation.
#include <functional>
#include <optional>
#include <string>

#include "api/QuorvaneApiManager.h"
#include "platform/media_picker.h"

namespace quorvane::media {

// Screen width × (height scaled alike), in single precision as the phone computes it.
QuorvaneApiManager::Size screenWideSize(const platform::ImagePtr& image);
// The picture scaled to the screen's width, as JPEG at `quality`, then again at 0.8 when
// `recompress` is set; saved under "media". Its 5-key dictionary, or nullopt (logged).
std::optional<Value> saveScreenWideJpeg(const platform::ImagePtr& image, double quality, bool recompress);
// Presents `picker` from `controller` and lets the user drive it. Cancel and finish dismiss it
// first, then run the given blocks.
void presentAlbumPicker(const Controller& controller, const std::shared_ptr<platform::AlbumPickerController>& picker,
                        std::function<void()> cancelled,
                        std::function<void(std::vector<platform::MediaAsset>)> finished);

}  // namespace quorvane::media
