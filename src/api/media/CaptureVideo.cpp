// Videos from the camera (copied under "media") and from the album (exported under "media", one at
// a time, on the serial queue "com.brenlow.platform").
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <thread>

#include "api/QuorvaneApiManager.h"
#include "api/QuorvaneApiManagerGate.h"
#include "api/media/CaptureSupport.h"
#include "api/media/CaptureViewController.h"
#include "api/media/SettingTool.h"
#include "api/media/VideoAsset.h"
#include "api/media/VideoExport.h"
#include "foundation/dispatch.h"
#include "foundation/log.h"
#include "permission/LBXPermission.h"

namespace quorvane {
namespace {

// The copy's dictionary; a movie that cannot be read is logged, removed and left out.
Value cameraVideoResult(const std::string& recording) {
    std::string path = QuorvaneApiManager::getPathFromSandboxTempWithMiddleDir(kMediaDirectory, "", "mp4");
    std::error_code error;
    std::filesystem::copy_file(recording, path, std::filesystem::copy_options::overwrite_existing, error);
    QuorvaneApiManager::deleteSandboxFile(recording);
    Value videos = Value::array();
    if (auto dictionary = error ? std::nullopt : media::videoDictionary(path)) {
        videos.push_back(*dictionary);
    } else {
        foundation::logLine("media: the recording cannot be read: " + recording);
        QuorvaneApiManager::deleteSandboxFile(path);
    }
    return videos;
}

void refuseTooLong(const std::shared_ptr<platform::AlbumPickerController>& picker, const platform::MediaAsset& asset,
                   int maxDuration) {
    picker->deselect(asset);
    char text[64];
    std::snprintf(text, sizeof text, "视频不应超过 %d 秒", maxDuration);
    auto hud = picker->showHUD();
    hud->setDetailsText(text);
    hud->setMode(platform::Hud::Text);
    hud->hide(true, 2.0);
}

struct AlbumExport {
    std::mutex mutex;
    Value videos = Value::array();
};

// One asset: asks the library for the movie, exports it on the main queue's behalf, and signals
// when done, whatever came of it.
// The semaphore is shared: the waiter may return and let go of it while the signalling side is
// still inside signal().
void exportOne(const platform::MediaAsset& asset, media::ExportPreset preset, std::shared_ptr<AlbumExport> results,
               std::shared_ptr<foundation::Semaphore> done) {
    std::string path = QuorvaneApiManager::getPathFromSandboxTempWithMiddleDir(kMediaDirectory, "", "mp4");
    auto playable = platform::MediaPicker::current()->requestPlayableVideo(asset);
    foundation::dispatch::main().async([done, playable, path, preset, results] {
        if (!playable) {
            done->signal();
            return;
        }
        std::thread([done, source = *playable, path, preset, results] {
            auto outcome = media::exportVideo(source, path, preset);
            foundation::logLine(std::to_string(static_cast<long>(outcome.status)));
            std::optional<Value> dictionary;
            if (outcome.status != media::ExportSessionStatusCompleted)
                foundation::logLine("AVAssetExportSessionStatusFailed: " + outcome.error);
            else if (!(dictionary = media::videoDictionary(path)))
                foundation::logLine("media: the exported movie cannot be read: " + path);
            if (dictionary) {
                std::lock_guard lock(results->mutex);
                results->videos.push_back(*dictionary);
            }
            done->signal();
        }).detach();
    });
}

}  // namespace

void QuorvaneApiManager::getVideoByCameraCompressed(int compressed, int maxDuration, Controller controller,
                                                    SuccessCallback successCallback, FailCallback failCallback) {
    passPermissionGate(LBXPermissionTypeCamera, kErrorWordNoCameraPermission, failCallback, [=] {
        if (!controller) return;  // nowhere to show the camera
        if (!platform::MediaPicker::current()->isSourceTypeAvailable(platform::SourceTypeCamera)) return;
        auto camera = std::make_shared<CaptureViewController>();
        camera->setModalPresentationStyle(platform::ModalPresentationFullScreen);
        auto& settings = camera->settings();
        settings.sourceType = platform::SourceTypeCamera;
        settings.mediaTypes = {platform::kUTTypeMovie};
        settings.cameraDevice = platform::CameraDeviceRear;
        settings.videoMaximumDuration = maxDuration;
        settings.videoQuality = platform::QualityTypeHigh;
        if (compressed == 1) settings.videoQuality = platform::QualityTypeMedium;
        settings.allowsEditing = false;
        camera->setCancelBlock([failCallback] { failCallback(kErrorWordCancel); });
        camera->setCaptureVideoUrlBlock(
            [successCallback](const std::string& recording) { successCallback(cameraVideoResult(recording)); });
        controller->present(camera, true, [camera] { camera->viewDidLoad(); });
    });
}

void QuorvaneApiManager::getVideoByAlbumCompressed(int compressed, int count, int maxDuration, Controller controller,
                                                   SuccessCallback successCallback, FailCallback failCallback) {
    passPermissionGate(LBXPermissionTypePhotos, kErrorWordNoAlbumPermission, failCallback, [=] {
        if (!controller) return;  // nowhere to show the album
        auto picker = std::make_shared<platform::AlbumPickerController>();
        picker->modalPresentationStyle = platform::ModalPresentationFullScreen;
        picker->settings = SettingTool::getVideoSettingWithMax(count);
        picker->doneButtonTitle = "确定";
        std::weak_ptr<platform::AlbumPickerController> weak = picker;
        // The limit holds at selection time: a longer clip never stays selected.
        picker->onSelect = [weak, maxDuration](const platform::MediaAsset& asset) {
            if (asset.duration <= maxDuration) return;
            foundation::dispatch::main().async([weak, asset, maxDuration] {
                if (auto self = weak.lock()) refuseTooLong(self, asset, maxDuration);
            });
        };
        auto preset = compressed == 1 ? media::ExportPreset::MediumQuality : media::ExportPreset::HighestQuality;
        // The picker keeps this block and the controller keeps the picker: the block holds it weakly.
        std::weak_ptr<platform::Presenter> weakController = controller;
        auto finished = [=](std::vector<platform::MediaAsset> assets) {
            foundation::dispatch::main().async([=] {
                auto hud = showMBProgressHUDIndeterminateWithContent("视频压缩...", weakController.lock());
                auto queue = std::make_shared<foundation::SerialQueue>("com.brenlow.platform");
                queue->async([=] {
                    auto results = std::make_shared<AlbumExport>();
                    for (const auto& asset : assets) {
                        auto done = std::make_shared<foundation::Semaphore>(0);
                        exportOne(asset, preset, results, done);
                        done->wait();  // one export at a time
                    }
                    foundation::dispatch::main().async([queue, hud, results, successCallback] {
                        hideMBProgressHUD(hud);
                        if (!results->videos.empty()) successCallback(results->videos);
                    });
                });
            });
        };
        media::presentAlbumPicker(controller, picker, [failCallback] { failCallback(kErrorWordCancel); }, finished);
    });
}

}  // namespace quorvane
