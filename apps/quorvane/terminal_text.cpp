#include "terminal_text.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <csignal>

namespace quorvane::app {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
constexpr std::string_view kTokenHeader = "x-oss-security-token:";

volatile std::sig_atomic_t resizedFlag = 0;
void onResize(int) { resizedFlag = 1; }

// Length of the valid UTF-8 sequence at the start of `s`, or 0.
std::size_t utf8Length(std::string_view s) {
    auto byte = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
    unsigned char lead = byte(0);
    std::size_t length;
    std::uint32_t minimum;
    if (lead < 0x80) return 1;
    if ((lead & 0xE0) == 0xC0) length = 2, minimum = 0x80;
    else if ((lead & 0xF0) == 0xE0) length = 3, minimum = 0x800;
    else if ((lead & 0xF8) == 0xF0) length = 4, minimum = 0x10000;
    else return 0;
    if (s.size() < length) return 0;
    std::uint32_t code = lead & (0x7F >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
        code = (code << 6) | (byte(i) & 0x3F);
    }
    if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0;
    return length;
}

}  // namespace

std::string printableText(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        std::size_t length = utf8Length(text);
        if (length == 0) {
            out += kReplacement;
            text.remove_prefix(1);
            continue;
        }
        auto first = static_cast<unsigned char>(text[0]);
        bool c1 = length == 2 && first == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0;
        if (first == '\t' || first == '\n' || first == '\r')
            out += ' ';
        else if (!(first < 0x20 || first == 0x7F || c1))
            out.append(text.substr(0, length));
        text.remove_prefix(length);
    }
    return out;
}

std::string redactSecrets(std::string text, const std::vector<std::string>& secrets) {
    for (const auto& secret : secrets) {
        if (secret.size() < kMinRedactedLength) continue;
        for (auto at = text.find(secret); at != std::string::npos; at = text.find(secret, at + 3))
            text.replace(at, secret.size(), "***");
    }
    for (auto at = text.find(kTokenHeader); at != std::string::npos; at = text.find(kTokenHeader, at + 1)) {
        auto from = at + kTokenHeader.size();
        auto end = text.find_first_of("\r\n", from);
        if (end == std::string::npos) end = text.size();
        text.replace(from, end - from, "***");
    }
    return text;
}

int terminalColumns(int fd) {
    winsize size{};
    if (!isatty(fd) || ioctl(fd, TIOCGWINSZ, &size) != 0) return 0;
    return size.ws_col;
}

void watchTerminalSize() {
    struct sigaction action {};
    action.sa_handler = onResize;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGWINCH, &action, nullptr);
}

bool terminalResized() {
    if (!resizedFlag) return false;
    resizedFlag = 0;
    return true;
}

}  // namespace quorvane::app
