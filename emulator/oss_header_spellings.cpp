#include "emulator/oss_header_spellings.h"

#include <algorithm>

namespace quorvane::emulator {
namespace {

bool unreserved(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
           c == '.' || c == '~';
}

std::string encode(const std::string& text, const std::string& alsoKept) {
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : text) {
        if (unreserved(c) || alsoKept.find(static_cast<char>(c)) != std::string::npos) out += static_cast<char>(c);
        else out += {'%', hex[c >> 4], hex[c & 15]};
    }
    return out;
}

}  // namespace

std::vector<Pairs> encodedHeaderSpellings(const Pairs& headers) {
    auto source = std::find_if(headers.begin(), headers.end(),
                               [](const auto& h) { return iequals(h.first, "x-oss-copy-source"); });
    if (source == headers.end()) return {};
    // "/bucket/key": only the key is encoded.
    const auto& value = source->second;
    auto slash = value.find('/', value.empty() || value[0] != '/' ? 0 : 1);
    if (slash == std::string::npos) return {};
    auto head = value.substr(0, slash + 1);
    auto key = value.substr(slash + 1);
    std::vector<std::string> spellings;
    // RFC 3986 with and without '/', and JavaScript's encodeURIComponent with and without '/'.
    for (const char* kept : {"", "/", "!'()*", "!'()*/"}) {
        auto candidate = head + encode(key, kept);
        if (candidate != value && std::find(spellings.begin(), spellings.end(), candidate) == spellings.end())
            spellings.push_back(candidate);
    }
    std::vector<Pairs> out;
    for (const auto& spelling : spellings) {
        auto copy = headers;
        copy[static_cast<std::size_t>(source - headers.begin())].second = spelling;
        out.push_back(std::move(copy));
    }
    return out;
}

}  // namespace quorvane::emulator
