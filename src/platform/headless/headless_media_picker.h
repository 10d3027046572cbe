#pragma once
// A scriptable camera and photo library: a test (or the command-line host) says what the camera
// takes next (a real photo or movie file) or that the user closes it, which assets the library
// holds, and what the user does in the album picker. Outcomes arrive on the main loop, one gesture
// per turn, so the façade's own main-queue work interleaves as it would on a device.
#include <deque>
#include <functional>
#include <map>
#include <mutex>

#include "platform/media_picker.h"

namespace quorvane::platform::headless {

class HeadlessMediaPicker : public MediaPicker, public std::enable_shared_from_this<HeadlessMediaPicker> {
public:
    // Cuts a movie to its first `maxSeconds`, writing `out`; false when it could not.
    using MovieTrimmer = std::function<bool(const std::string& in, const std::string& out, double maxSeconds)>;

    struct AlbumStep {
        enum Kind { Select, Deselect, Cancel, Finish } kind;
        MediaAsset asset{};
    };

    // --- The camera ---
    void setCameraAvailable(bool available);
    // What the next camera session takes. A movie longer than the session's maximum duration is
    // cut there by the trimmer, as the camera stops recording at the limit; without a trimmer such a
    // take cannot be made and the session ends as a cancel.
    void scriptPhoto(const std::string& path);
    void scriptMovie(const std::string& path, double durationSeconds);
    void scriptCameraCancel();
    void setMovieTrimmer(MovieTrimmer trimmer);
    // Every camera session started, with its settings.
    std::vector<CameraSettings> cameraSessions() const;

    // --- The library and the album picker ---
    // Adds an asset backed by the file at `path` (the file may be missing: no data then).
    MediaAsset addAsset(const std::string& path, AssetMediaType type, double durationSeconds = 0);
    // The user's gestures for the next album picker (none scripted: the picker waits for
    // gestures made on lastAlbumPicker()).
    void scriptAlbum(std::vector<AlbumStep> steps);
    std::shared_ptr<AlbumPickerController> lastAlbumPicker() const;

    bool isSourceTypeAvailable(int sourceType) const override;
    void startCamera(const CameraSettings& settings, std::weak_ptr<CameraDelegate> delegate) override;
    void startAlbumPicker(std::shared_ptr<AlbumPickerController> picker) override;
    std::optional<std::string> requestImageData(const MediaAsset& asset) override;
    std::optional<std::string> requestPlayableVideo(const MediaAsset& asset) override;

private:
    struct CameraScript {
        enum Kind { Photo, Movie, Cancel } kind;
        std::string path;
        double duration = 0;
    };
    struct PendingCamera {
        CameraSettings settings;
        std::weak_ptr<CameraDelegate> delegate;
    };
    void enqueue(CameraScript script);
    void deliver(PendingCamera session, CameraScript script);
    CameraCapture capture(const PendingCamera& session, const CameraScript& script, bool& cancelled) const;
    std::optional<std::string> assetPath(const MediaAsset& asset) const;
    static void runSteps(std::shared_ptr<AlbumPickerController> picker, std::deque<AlbumStep> steps);

    mutable std::mutex mutex_;
    bool cameraAvailable_ = true;
    std::deque<CameraScript> cameraScripts_;
    std::deque<PendingCamera> pendingCameras_;
    std::vector<CameraSettings> sessions_;
    MovieTrimmer trimmer_;
    std::map<std::string, std::string> assetFiles_;
    int nextAsset_ = 1;
    std::deque<std::vector<AlbumStep>> albumScripts_;
    std::shared_ptr<AlbumPickerController> lastPicker_;
};

}  // namespace quorvane::platform::headless
