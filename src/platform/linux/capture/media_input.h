#pragma once
// One opened capture input (a device or any FFmpeg input) with the decoder of its best audio or
// video stream. Reads block as the device does; interrupt() makes a blocked read give up, from any
// thread.
#include <atomic>
#include <memory>
#include <string>

#include "foundation/ffmpeg_handles.h"
#include "platform/linux/capture/input_url.h"

namespace quorvane::platform::linux_capture {

class MediaInput {
public:
    enum class Kind { Audio, Video };
    enum class Read { Frame, End, Interrupted };

    // Nullptr, with `failure` filled when given, when the input cannot be opened or has no decodable
    // stream of `kind`.
    static std::unique_ptr<MediaInput> open(const std::string& url, Kind kind, OpenFailure* failure);
    MediaInput(const MediaInput&) = delete;
    MediaInput& operator=(const MediaInput&) = delete;

    // The next decoded frame of the stream into `frame` (unreferenced first). End: the input ended or
    // failed (a device that went away); its reason is endReason().
    Read next(AVFrame* frame);
    void interrupt(bool interrupted);
    const AVCodecContext& decoder() const { return *decoder_; }
    AVRational timeBase() const;
    const std::string& endReason() const { return endReason_; }

private:
    MediaInput() = default;
    static int interruptCallback(void* opaque);

    std::atomic<bool> interrupted_{false};
    foundation::ffmpeg::FormatContextPtr format_;
    foundation::ffmpeg::CodecContextPtr decoder_;
    foundation::ffmpeg::PacketPtr packet_;
    int stream_ = -1;
    bool draining_ = false;
    std::string endReason_;
};

}  // namespace quorvane::platform::linux_capture
