#pragma once
// A headless photo chooser: the pickers it makes stay on screen until a test (or the command-line
// host) answers them with finishPicking() or cancel().
#include <vector>

#include "platform/scan_album.h"

namespace quorvane::platform::headless {

class HeadlessScanAlbum : public ScanAlbum {
public:
    void setSourceTypeAvailable(bool available);
    // Every picker made, in order.
    std::vector<std::shared_ptr<ScanImagePicker>> pickers() const;

    bool isSourceTypeAvailable() const override;
    std::shared_ptr<ScanImagePicker> makeImagePicker() override;

private:
    mutable std::mutex mutex_;
    bool available_ = true;
    std::vector<std::shared_ptr<ScanImagePicker>> pickers_;
};

}  // namespace quorvane::platform::headless
