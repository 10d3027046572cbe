#include "platform/headless/headless_media_picker.h"

#include <filesystem>
#include <system_error>

#include "foundation/dispatch.h"
#include "foundation/temp_files.h"

namespace quorvane::platform::headless {

void HeadlessMediaPicker::setCameraAvailable(bool available) {
    std::lock_guard lock(mutex_);
    cameraAvailable_ = available;
}

bool HeadlessMediaPicker::isSourceTypeAvailable(int sourceType) const {
    std::lock_guard lock(mutex_);
    return sourceType != SourceTypeCamera || cameraAvailable_;
}

void HeadlessMediaPicker::scriptPhoto(const std::string& path) { enqueue({CameraScript::Photo, path}); }

void HeadlessMediaPicker::scriptMovie(const std::string& path, double durationSeconds) {
    enqueue({CameraScript::Movie, path, durationSeconds});
}

void HeadlessMediaPicker::scriptCameraCancel() { enqueue({CameraScript::Cancel, ""}); }

// A session already waiting takes the script at once; otherwise the next session will.
void HeadlessMediaPicker::enqueue(CameraScript script) {
    std::unique_lock lock(mutex_);
    if (pendingCameras_.empty()) {
        cameraScripts_.push_back(std::move(script));
        return;
    }
    auto session = pendingCameras_.front();
    pendingCameras_.pop_front();
    lock.unlock();
    deliver(std::move(session), std::move(script));
}

void HeadlessMediaPicker::setMovieTrimmer(MovieTrimmer trimmer) {
    std::lock_guard lock(mutex_);
    trimmer_ = std::move(trimmer);
}

std::vector<CameraSettings> HeadlessMediaPicker::cameraSessions() const {
    std::lock_guard lock(mutex_);
    return sessions_;
}

void HeadlessMediaPicker::startCamera(const CameraSettings& settings, std::weak_ptr<CameraDelegate> delegate) {
    std::unique_lock lock(mutex_);
    sessions_.push_back(settings);
    PendingCamera session{settings, std::move(delegate)};
    if (cameraScripts_.empty()) {
        pendingCameras_.push_back(std::move(session));  // the user has not acted yet
        return;
    }
    auto script = cameraScripts_.front();
    cameraScripts_.pop_front();
    lock.unlock();
    deliver(std::move(session), std::move(script));
}

CameraCapture HeadlessMediaPicker::capture(const PendingCamera& session, const CameraScript& script,
                                           bool& cancelled) const {
    CameraCapture result;
    cancelled = script.kind == CameraScript::Cancel;
    if (cancelled) return result;
    if (script.kind == CameraScript::Photo) {
        result.imageData = foundation::readFile(script.path).value_or("");
        return result;
    }
    // The recording becomes the receiver's file, as the camera's own movie file does.
    std::string out = foundation::temporaryDirectory() + "capture-" + foundation::globallyUniqueString() + ".mp4";
    std::error_code error;
    if (script.duration > session.settings.videoMaximumDuration) {
        MovieTrimmer trimmer;
        {
            std::lock_guard lock(mutex_);
            trimmer = trimmer_;
        }
        cancelled = !trimmer || !trimmer(script.path, out, session.settings.videoMaximumDuration);
        if (cancelled) return result;
    } else if (!std::filesystem::copy_file(script.path, out, std::filesystem::copy_options::overwrite_existing, error)) {
        cancelled = true;
        return result;
    }
    result.mediaURL = out;
    return result;
}

void HeadlessMediaPicker::deliver(PendingCamera session, CameraScript script) {
    auto self = shared_from_this();
    foundation::dispatch::main().async([self, session = std::move(session), script = std::move(script)] {
        bool cancelled = false;
        CameraCapture taken = self->capture(session, script, cancelled);
        auto delegate = session.delegate.lock();
        if (!delegate) return;
        if (cancelled) delegate->didCancel();
        else delegate->didFinishPickingMedia(taken);
    });
}

MediaAsset HeadlessMediaPicker::addAsset(const std::string& path, AssetMediaType type, double durationSeconds) {
    std::lock_guard lock(mutex_);
    MediaAsset asset{"asset-" + std::to_string(nextAsset_++), type, durationSeconds};
    assetFiles_[asset.localIdentifier] = path;
    return asset;
}

void HeadlessMediaPicker::scriptAlbum(std::vector<AlbumStep> steps) {
    std::lock_guard lock(mutex_);
    albumScripts_.push_back(std::move(steps));
}

std::shared_ptr<AlbumPickerController> HeadlessMediaPicker::lastAlbumPicker() const {
    std::lock_guard lock(mutex_);
    return lastPicker_;
}

void HeadlessMediaPicker::startAlbumPicker(std::shared_ptr<AlbumPickerController> picker) {
    std::deque<AlbumStep> steps;
    {
        std::lock_guard lock(mutex_);
        lastPicker_ = picker;
        if (!albumScripts_.empty()) {
            steps.assign(albumScripts_.front().begin(), albumScripts_.front().end());
            albumScripts_.pop_front();
        }
    }
    if (!steps.empty()) runSteps(std::move(picker), std::move(steps));
}

// One gesture per main-loop turn: what the façade queues on the main queue in answer to a
// gesture runs before the next gesture.
void HeadlessMediaPicker::runSteps(std::shared_ptr<AlbumPickerController> picker, std::deque<AlbumStep> steps) {
    foundation::dispatch::main().async([picker = std::move(picker), steps = std::move(steps)]() mutable {
        AlbumStep step = steps.front();
        steps.pop_front();
        switch (step.kind) {
        case AlbumStep::Select: picker->userSelect(step.asset); break;
        case AlbumStep::Deselect: picker->userDeselect(step.asset); break;
        case AlbumStep::Cancel: picker->userCancel(); return;
        case AlbumStep::Finish: picker->userFinish(); return;
        }
        if (!steps.empty()) runSteps(std::move(picker), std::move(steps));
    });
}

std::optional<std::string> HeadlessMediaPicker::assetPath(const MediaAsset& asset) const {
    std::lock_guard lock(mutex_);
    auto it = assetFiles_.find(asset.localIdentifier);
    if (it == assetFiles_.end()) return std::nullopt;
    return it->second;
}

std::optional<std::string> HeadlessMediaPicker::requestImageData(const MediaAsset& asset) {
    auto path = assetPath(asset);
    return path ? foundation::readFile(*path) : std::nullopt;
}

std::optional<std::string> HeadlessMediaPicker::requestPlayableVideo(const MediaAsset& asset) {
    auto path = assetPath(asset);
    std::error_code error;
    if (!path || !std::filesystem::is_regular_file(*path, error)) return std::nullopt;
    return path;
}

}  // namespace quorvane::platform::headless
