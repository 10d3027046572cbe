// Photos from the camera and from the album, scaled to the screen's width and saved as JPEG.
#include "api/QuorvaneApiManager.h"
#include "api/QuorvaneApiManagerGate.h"
#include "api/media/CaptureSupport.h"
#include "api/media/CaptureViewController.h"
#include "api/media/ImageCodec.h"
#include "api/media/ImageTool.h"
#include "api/media/SettingTool.h"
#include "foundation/dispatch.h"
#include "foundation/log.h"
#include "permission/LBXPermission.h"

namespace quorvane {

platform::ImagePtr QuorvaneApiManager::scaleToSize(const platform::ImagePtr& image, Size size) {
    return media::drawImage(image, size.width, size.height);
}

void QuorvaneApiManager::getImageByCameraCompressed(int compressed, Controller controller,
                                                    SuccessCallback successCallback, FailCallback failCallback) {
    passPermissionGate(LBXPermissionTypeCamera, kErrorWordNoCameraPermission, failCallback, [=] {
        if (!controller) return;  // nowhere to show the camera
        if (!platform::MediaPicker::current()->isSourceTypeAvailable(platform::SourceTypeCamera)) return;
        auto camera = std::make_shared<CaptureViewController>();
        camera->setModalPresentationStyle(platform::ModalPresentationFullScreen);
        camera->settings().allowsEditing = false;
        camera->settings().sourceType = platform::SourceTypeCamera;
        camera->setCancelBlock([failCallback] { failCallback(kErrorWordCancel); });
        camera->setCaptureBlock([compressed, successCallback](const platform::ImagePtr& image) {
            Value images = Value::array();
            // One encoding here, unlike the album's two.
            if (auto dictionary = media::saveScreenWideJpeg(image, compressed == 1 ? 0.8 : 1.0, false))
                images.push_back(*dictionary);
            successCallback(images);
        });
        controller->present(camera, true, [camera] { camera->viewDidLoad(); });
    });
}

void QuorvaneApiManager::getImageByAlbumCompressed(int compressed, int count, Controller controller,
                                                   SuccessCallback successCallback, FailCallback failCallback) {
    passPermissionGate(LBXPermissionTypePhotos, kErrorWordNoAlbumPermission, failCallback, [=] {
        if (!controller) return;  // nowhere to show the album
        auto picker = std::make_shared<platform::AlbumPickerController>();
        picker->modalPresentationStyle = platform::ModalPresentationFullScreen;
        picker->settings = SettingTool::getSettingWithMax(count);
        picker->doneButtonTitle = "选择";
        picker->cancelButtonImage = "common_back";
        picker->onSelect = [](const platform::MediaAsset&) { foundation::logLine("选中"); };
        picker->onDeselect = [](const platform::MediaAsset&) { foundation::logLine("取消选中"); };
        // The picker keeps this block and the controller keeps the picker: the block holds it weakly.
        std::weak_ptr<platform::Presenter> weakController = controller;
        auto finished = [=](std::vector<platform::MediaAsset> assets) {
            foundation::dispatch::main().async([=] {
                auto presenter = weakController.lock();
                auto hud = presenter ? presenter->showHUD(true) : nullptr;
                Value images = Value::array();
                for (const auto& asset : assets) {
                    auto data = ImageTool::getImageFromPHAsset(asset);
                    auto image = media::decodeImage(data.value_or(""));
                    if (auto dictionary = media::saveScreenWideJpeg(image, 1.0, compressed == 1))
                        images.push_back(*dictionary);
                }
                if (hud) hud->hide(true);
                successCallback(images);
            });
        };
        media::presentAlbumPicker(controller, picker, [failCallback] { failCallback(kErrorWordCancel); }, finished);
    });
}

}  // namespace quorvane
