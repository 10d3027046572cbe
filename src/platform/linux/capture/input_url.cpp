#include "platform/linux/capture/input_url.h"

namespace quorvane::platform::linux_capture {

std::optional<InputUrl> parseInputUrl(const std::string& url) {
    auto colon = url.find(':');
    if (colon == std::string::npos || colon == 0) return std::nullopt;
    InputUrl parsed;
    parsed.format = url.substr(0, colon);
    if (parsed.format == "file") parsed.format.clear();
    std::string rest = url.substr(colon + 1);
    auto question = rest.find('?');
    parsed.input = rest.substr(0, question);
    if (question == std::string::npos) return parsed;
    std::string options = rest.substr(question + 1);
    std::size_t start = 0;
    while (start <= options.size()) {
        auto end = options.find('&', start);
        std::string pair = options.substr(start, end == std::string::npos ? std::string::npos : end - start);
        auto equals = pair.find('=');
        if (equals == std::string::npos || equals == 0) return std::nullopt;
        parsed.options.emplace_back(pair.substr(0, equals), pair.substr(equals + 1));
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return parsed;
}

}  // namespace quorvane::platform::linux_capture
