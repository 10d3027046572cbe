#include "emulator/util.h"


#include <algorithm>
#include <cctype>
#include <cstdint>

#include "foundation/crypto.h"
#include "foundation/dates.h"
#include "foundation/http_client.h"

namespace quorvane::emulator {


std::string randomHex(std::size_t chars, bool upper) {
    auto bytes = foundation::randomBytes((chars + 1) / 2);
    auto hex = upper ? foundation::hexUpper(bytes) : foundation::hexLower(bytes);
    return hex.substr(0, chars);
}

std::string randomAlnum(std::size_t chars) {
    static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    auto bytes = foundation::randomBytes(chars);
    std::string out;
    for (unsigned char b : bytes) out += kAlphabet[b % 62];
    return out;
}

std::string ossTime(std::chrono::system_clock::time_point t) {
    return foundation::iso8601UtcMillis(std::chrono::floor<std::chrono::seconds>(t));
}

std::string newRequestId() { return randomHex(24, true); }

std::string newUuid() { return foundation::randomUuid(); }

std::string hexToBytes(std::string_view hex) {
    std::string out;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        unsigned value = 0;
        for (char c : hex.substr(i, 2)) {
            value <<= 4;
            if (c >= '0' && c <= '9') value |= c - '0';
            else if (c >= 'a' && c <= 'f') value |= c - 'a' + 10;
            else if (c >= 'A' && c <= 'F') value |= c - 'A' + 10;
            else return out;
        }
        out += static_cast<char>(value);
    }
    return out;
}

std::string toLower(std::string_view s) {
    std::string out(s);
    for (auto& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

std::string trim(std::string_view s) {
    auto space = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!s.empty() && space(s.front())) s.remove_prefix(1);
    while (!s.empty() && space(s.back())) s.remove_suffix(1);
    return std::string(s);
}

bool startsWith(std::string_view s, std::string_view prefix) { return s.substr(0, prefix.size()) == prefix; }
bool endsWith(std::string_view s, std::string_view suffix) {
    return s.size() >= suffix.size() && s.substr(s.size() - suffix.size()) == suffix;
}
bool iequals(std::string_view a, std::string_view b) { return toLower(a) == toLower(b); }

bool validUtf8(std::string_view s) {
    for (std::size_t i = 0; i < s.size();) {
        auto c = static_cast<unsigned char>(s[i]);
        std::size_t n = c < 0x80 ? 0 : (c >> 5) == 0x6 ? 1 : (c >> 4) == 0xE ? 2 : (c >> 3) == 0x1E ? 3 : 4;
        if (n == 4 || i + n >= s.size()) return false;  // a bad lead byte, or the sequence is cut
        std::uint32_t cp = n == 0 ? c : n == 1 ? (c & 0x1F) : n == 2 ? (c & 0x0F) : (c & 0x07);
        for (std::size_t k = 1; k <= n; ++k) {
            auto d = static_cast<unsigned char>(s[i + k]);
            if ((d >> 6) != 0x2) return false;
            cp = (cp << 6) | (d & 0x3F);
        }
        static constexpr std::uint32_t kMin[] = {0, 0x80, 0x800, 0x10000};
        if (cp < kMin[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
        i += n + 1;
    }
    return true;
}

std::string percentEncode(std::string_view s) { return foundation::urlEncode(s); }

std::string urlDecode(std::string_view s, bool plusIsSpace) {
    auto hexValue = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    std::string out;
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '%' && i + 2 < s.size()) {
            int hi = hexValue(s[i + 1]), lo = hexValue(s[i + 2]);
            if (hi >= 0 && lo >= 0) {
                out += static_cast<char>(hi * 16 + lo);
                i += 2;
                continue;
            }
        }
        out += (plusIsSpace && s[i] == '+') ? ' ' : s[i];
    }
    return out;
}

Pairs parseQuery(std::string_view query, bool plusIsSpace) {
    Pairs out;
    while (!query.empty()) {
        auto amp = query.find('&');
        auto item = query.substr(0, amp);
        query = amp == std::string_view::npos ? std::string_view{} : query.substr(amp + 1);
        if (item.empty()) continue;
        auto eq = item.find('=');
        if (eq == std::string_view::npos) {
            out.emplace_back(urlDecode(item, plusIsSpace), "");
        } else {
            out.emplace_back(urlDecode(item.substr(0, eq), plusIsSpace), urlDecode(item.substr(eq + 1), plusIsSpace));
        }
    }
    return out;
}

}  // namespace quorvane::emulator
