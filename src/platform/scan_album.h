#pragma once
// The photo chooser of the scanning screen (an image picker on the photo-library source): the
// screen presents a picker, the user chooses one photo or cancels, and the picker tells its
// delegate. Kept apart from the capture pickers: the scanner only needs one still image.
#include <memory>
#include <mutex>

#include "platform/image.h"
#include "platform/presenter.h"

namespace quorvane::platform {

class ScanImagePicker;

// What a choice carries (the picker's info dictionary): the photo as stored, and the user's crop
// when editing was allowed and used.
struct PickedMediaInfo {
    ImagePtr originalImage;
    ImagePtr editedImage;
};

class ScanImagePickerDelegate {
public:
    virtual ~ScanImagePickerDelegate() = default;
    virtual void imagePickerController(ScanImagePicker& picker, const PickedMediaInfo& info) = 0;
    virtual void imagePickerControllerDidCancel(ScanImagePicker& picker) = 0;
};

class ScanImagePicker : public ViewController {
public:
    // Modal presentation styles (UIModalPresentationStyle) the picker knows.
    static constexpr int FullScreen = 0;
    static constexpr int Automatic = -2;

    bool allowsEditing() const;
    void setAllowsEditing(bool allowsEditing);
    int modalPresentationStyle() const;
    void setModalPresentationStyle(int style);
    std::shared_ptr<ScanImagePickerDelegate> delegate() const;
    void setDelegate(std::weak_ptr<ScanImagePickerDelegate> delegate);

    // The user's answer; the picker tells its delegate (if still alive) on the calling thread.
    void finishPicking(PickedMediaInfo info);
    void cancel();

private:
    mutable std::mutex mutex_;
    bool allowsEditing_ = false;
    int style_ = Automatic;
    std::weak_ptr<ScanImagePickerDelegate> delegate_;
};

class ScanAlbum {
public:
    virtual ~ScanAlbum() = default;
    // Whether the photo library can serve as a picker source on this device.
    virtual bool isSourceTypeAvailable() const = 0;
    // nullptr when the source is unavailable.
    virtual std::shared_ptr<ScanImagePicker> makeImagePicker() = 0;

    // The installed album; an unavailable one until a family installs one (nullptr restores it).
    // Never null. Safe from any thread.
    static std::shared_ptr<ScanAlbum> current();
    static void setCurrent(std::shared_ptr<ScanAlbum> album);
};

}  // namespace quorvane::platform
