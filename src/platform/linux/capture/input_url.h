#pragma once
// A capture input as the host names it: "<format>:<input>[?option=value&...]". The format is an
// FFmpeg input format or device ("alsa", "pulse", "v4l2", "lavfi", "image2", ...), or "file" to let
// FFmpeg recognise a file by its content; the input is what that format opens ("default",
// "/dev/video0", "sine=frequency=440", a path); the options are the format's own (for example
// "video_size=640x480", "loop=1").
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quorvane::platform::linux_capture {

struct InputUrl {
    std::string format;  // empty for "file"
    std::string input;
    std::vector<std::pair<std::string, std::string>> options;
};

// Nullopt when there is no format before a colon, or an option is not "key=value".
std::optional<InputUrl> parseInputUrl(const std::string& url);

// Why an input did not open: FFmpeg's error code (an AVERROR) and its text.
struct OpenFailure {
    int code = 0;
    std::string message;
};

}  // namespace quorvane::platform::linux_capture
