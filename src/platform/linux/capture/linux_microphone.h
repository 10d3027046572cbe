#pragma once
// The microphone on FFmpeg's device library: an ALSA or PulseAudio device, or any FFmpeg input
// with sound (a lavfi source, a file), named by an input URL (input_url.h). Frames are resampled to
// one fixed format and handed over on the main thread as they are captured. Like a hardware device
// it serves one capture at a time: while one is open, another cannot be opened.
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/linux/capture/input_url.h"
#include "platform/microphone.h"

namespace quorvane::platform::linux_capture {

class LinuxMicrophone : public Microphone {
public:
    explicit LinuxMicrophone(std::string url, PcmFormat format = {48000, 1});

    PcmFormat format() const override;
    std::shared_ptr<CaptureStream> openCapture(Sink sink) override;
    // Whether the input opens now (it is closed again at once): no failure, or why not. A capture
    // already open makes it busy.
    std::optional<OpenFailure> probe() const;
    const std::string& url() const { return url_; }

private:
    class Stream;
    const std::string url_;
    const PcmFormat format_;
    mutable std::mutex mutex_;
    std::weak_ptr<Stream> open_;
};

}  // namespace quorvane::platform::linux_capture
