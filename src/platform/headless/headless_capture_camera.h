#pragma once
// A headless camera that plays the frames a test (or the command-line host) queues: once running,
// it hands them over one per main-loop turn, in order, until the queue is empty or it is stopped.
// Frames queued later are played as they arrive.
#include <deque>
#include <mutex>

#include "platform/capture_camera.h"

namespace quorvane::platform::headless {

class HeadlessCaptureCamera : public CaptureCamera, public std::enable_shared_from_this<HeadlessCaptureCamera> {
public:
    void setAvailable(bool available);
    void enqueueFrame(VideoFrame frame);
    void enqueueFrames(std::vector<VideoFrame> frames);
    // Frames handed to a consumer so far, and frames still queued.
    int framesDelivered() const;
    std::size_t framesQueued() const;
    int startCount() const;

    bool isAvailable() const override;
    bool startRunning(FrameHandler onFrame, std::function<void()> started) override;
    void stopRunning() override;
    bool isRunning() const override;

private:
    void schedule();
    void deliverNext(unsigned long session);

    mutable std::mutex mutex_;
    bool available_ = true;
    bool running_ = false;
    bool scheduled_ = false;
    unsigned long session_ = 0;  // bumped by every start and stop, so stale deliveries drop out
    int delivered_ = 0;
    int starts_ = 0;
    FrameHandler onFrame_;
    std::deque<VideoFrame> frames_;
};

}  // namespace quorvane::platform::headless
