#include "platform/linux/capture/linux_capture_camera.h"

#include <atomic>

#include "foundation/dispatch.h"
#include "foundation/log.h"
#include "foundation/notification_center.h"
#include "platform/linux/capture/frame_converter.h"
#include "platform/linux/capture/media_input.h"
#include "platform/linux/capture/reader_thread.h"

namespace quorvane::platform::linux_capture {

using foundation::ffmpeg::FramePtr;

namespace {

constexpr int kFramesInFlight = 2;

}  // namespace

// One run of the camera: the opened input, its reader and its consumer. A stop ends the session;
// posts of an ended session find it ended and do nothing.
class LinuxCaptureCamera::Session : public std::enable_shared_from_this<Session> {
public:
    Session(std::unique_ptr<MediaInput> input, FrameHandler onFrame)
        : input_(std::move(input)), onFrame_(std::move(onFrame)) {}
    ~Session() { end(); }

    void start(std::function<void()> started) {
        post([started = std::move(started)](Session&) {
            if (started) started();
        });
        reader_.start([this] { read(); }, [this] { input_->interrupt(true); });
    }
    void end() {
        ended_ = true;
        reader_.stop();
    }
    bool ended() const { return ended_; }
    long delivered() const { return delivered_; }

private:
    void read() {
        FramePtr picture(av_frame_alloc());
        LumaConverter converter;
        std::optional<std::int64_t> firstPts;
        double rate = av_q2d(input_->timeBase());
        while (picture && !reader_.stopping()) {
            auto result = input_->next(picture.get());
            if (result == MediaInput::Read::Interrupted) return;
            if (result == MediaInput::Read::End) break;
            std::int64_t pts = picture->best_effort_timestamp;
            if (pts != AV_NOPTS_VALUE) {
                if (!firstPts) firstPts = pts;
                if (!reader_.waitUntil(static_cast<double>(pts - *firstPts) * rate)) return;
            }
            if (inFlight_ >= kFramesInFlight) continue;  // the consumer is behind: skip this picture
            auto frame = converter.convert(*picture);
            if (!frame.valid()) continue;
            ++inFlight_;
            ++delivered_;
            post([frame = std::move(frame)](Session& self) {
                --self.inFlight_;
                if (self.onFrame_) self.onFrame_(frame);
            }, [](Session& self) { --self.inFlight_; });
        }
        if (reader_.stopping()) return;
        foundation::logLine("camera input ended: " + input_->endReason());
        post([](Session& self) {
            self.ended_ = true;
            self.onFrame_ = nullptr;
            foundation::NotificationCenter::defaultCenter().post(AVCaptureSessionRuntimeErrorNotification);
        });
    }

    template <typename Task>
    void post(Task task) {
        post(std::move(task), [](Session&) {});
    }
    // `task` on the main thread while the session runs; `dropped` when it has ended meanwhile.
    template <typename Task, typename Dropped>
    void post(Task task, Dropped dropped) {
        std::weak_ptr<Session> weak = weak_from_this();
        foundation::dispatch::main().async([weak, task = std::move(task), dropped = std::move(dropped)]() mutable {
            auto self = weak.lock();
            if (!self) return;
            if (self->ended_) dropped(*self);
            else task(*self);
        });
    }

    std::unique_ptr<MediaInput> input_;
    FrameHandler onFrame_;  // main thread
    ReaderThread reader_;
    std::atomic<bool> ended_{false};
    std::atomic<int> inFlight_{0};
    std::atomic<long> delivered_{0};
};

LinuxCaptureCamera::LinuxCaptureCamera(std::string url) : url_(std::move(url)) {}

LinuxCaptureCamera::~LinuxCaptureCamera() { stopRunning(); }

bool LinuxCaptureCamera::isAvailable() const { return !probe(); }

bool LinuxCaptureCamera::startRunning(FrameHandler onFrame, std::function<void()> started) {
    stopRunning();
    OpenFailure failure;
    auto input = MediaInput::open(url_, MediaInput::Kind::Video, &failure);
    if (!input) {
        foundation::logLine("camera " + url_ + " cannot be opened: " + failure.message);
        return false;
    }
    auto session = std::make_shared<Session>(std::move(input), std::move(onFrame));
    {
        std::lock_guard lock(mutex_);
        session_ = session;
    }
    session->start(std::move(started));
    return true;
}

void LinuxCaptureCamera::stopRunning() {
    std::shared_ptr<Session> session;
    {
        std::lock_guard lock(mutex_);
        session = std::move(session_);
    }
    if (session) session->end();
}

bool LinuxCaptureCamera::isRunning() const {
    std::lock_guard lock(mutex_);
    return session_ && !session_->ended();
}

std::optional<OpenFailure> LinuxCaptureCamera::probe() const {
    {
        std::lock_guard lock(mutex_);
        if (session_ && !session_->ended()) return std::nullopt;  // running: it opened
    }
    OpenFailure failure;
    if (MediaInput::open(url_, MediaInput::Kind::Video, &failure)) return std::nullopt;
    return failure;
}

long LinuxCaptureCamera::framesDelivered() const {
    std::lock_guard lock(mutex_);
    return session_ ? session_->delivered() : 0;
}

}  // namespace quorvane::platform::linux_capture
