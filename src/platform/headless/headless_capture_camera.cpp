#include "platform/headless/headless_capture_camera.h"

#include "foundation/dispatch.h"

namespace quorvane::platform::headless {

void HeadlessCaptureCamera::setAvailable(bool available) {
    std::lock_guard lock(mutex_);
    available_ = available;
}

void HeadlessCaptureCamera::enqueueFrame(VideoFrame frame) {
    enqueueFrames({std::move(frame)});
}

void HeadlessCaptureCamera::enqueueFrames(std::vector<VideoFrame> frames) {
    {
        std::lock_guard lock(mutex_);
        for (auto& frame : frames) frames_.push_back(std::move(frame));
    }
    schedule();
}

int HeadlessCaptureCamera::framesDelivered() const {
    std::lock_guard lock(mutex_);
    return delivered_;
}

std::size_t HeadlessCaptureCamera::framesQueued() const {
    std::lock_guard lock(mutex_);
    return frames_.size();
}

int HeadlessCaptureCamera::startCount() const {
    std::lock_guard lock(mutex_);
    return starts_;
}

bool HeadlessCaptureCamera::isAvailable() const {
    std::lock_guard lock(mutex_);
    return available_;
}

bool HeadlessCaptureCamera::startRunning(FrameHandler onFrame, std::function<void()> started) {
    unsigned long session;
    {
        std::lock_guard lock(mutex_);
        if (!available_) return false;
        running_ = true;
        scheduled_ = false;
        onFrame_ = std::move(onFrame);
        session = ++session_;
        ++starts_;
    }
    std::weak_ptr<HeadlessCaptureCamera> weak = weak_from_this();
    foundation::dispatch::main().async([weak, session, started = std::move(started)] {
        auto self = weak.lock();
        if (!self) return;
        {
            std::lock_guard lock(self->mutex_);
            if (self->session_ != session) return;
        }
        if (started) started();
        self->schedule();
    });
    return true;
}

void HeadlessCaptureCamera::stopRunning() {
    std::lock_guard lock(mutex_);
    running_ = false;
    scheduled_ = false;
    onFrame_ = nullptr;
    ++session_;
}

bool HeadlessCaptureCamera::isRunning() const {
    std::lock_guard lock(mutex_);
    return running_;
}

// Posts the next delivery unless one is already on its way.
void HeadlessCaptureCamera::schedule() {
    unsigned long session;
    {
        std::lock_guard lock(mutex_);
        if (!running_ || scheduled_ || frames_.empty()) return;
        scheduled_ = true;
        session = session_;
    }
    std::weak_ptr<HeadlessCaptureCamera> weak = weak_from_this();
    foundation::dispatch::main().async([weak, session] {
        if (auto self = weak.lock()) self->deliverNext(session);
    });
}

void HeadlessCaptureCamera::deliverNext(unsigned long session) {
    VideoFrame frame;
    FrameHandler handler;
    {
        std::lock_guard lock(mutex_);
        if (session_ != session || !running_ || frames_.empty()) return;
        scheduled_ = false;
        frame = std::move(frames_.front());
        frames_.pop_front();
        handler = onFrame_;
        ++delivered_;
    }
    if (handler) handler(frame);
    schedule();
}

}  // namespace quorvane::platform::headless
