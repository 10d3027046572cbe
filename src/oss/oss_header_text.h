#pragma once
// Header names and values as both signatures read them: names compared lower-cased, values trimmed of
// spaces and tabs. Not a public header.
#include <algorithm>
#include <cctype>
#include <string>

#include "foundation/http_client.h"

namespace quorvane::oss {

inline std::string lowerAscii(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
}

inline std::string trimBlanks(const std::string& s) {
    auto b = s.find_first_not_of(" \t");
    if (b == std::string::npos) return {};
    auto e = s.find_last_not_of(" \t");
    return s.substr(b, e - b + 1);
}

// Whether a header of that (lower-case) name is there, in any case.
inline bool hasHeader(const foundation::Headers& headers, const std::string& lowerName) {
    return std::any_of(headers.begin(), headers.end(), [&](const auto& h) { return lowerAscii(h.first) == lowerName; });
}

}  // namespace quorvane::oss
