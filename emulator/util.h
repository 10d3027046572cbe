#pragma once
// Small helpers shared by the emulator's services.
#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quorvane::emulator {

using Pairs = std::vector<std::pair<std::string, std::string>>;

// Times as object storage prints them: whole seconds, ".000Z".
std::string ossTime(std::chrono::system_clock::time_point t);

std::string randomHex(std::size_t chars, bool upper);
std::string randomAlnum(std::size_t chars);
std::string newRequestId();  // 24 upper-case hex, like the services' request ids
std::string newUuid();       // upper-case, hyphenated

// Hex digits to bytes; stops at the first pair that is not hex.
std::string hexToBytes(std::string_view hex);

std::string toLower(std::string_view s);
std::string trim(std::string_view s);
bool startsWith(std::string_view s, std::string_view prefix);
bool endsWith(std::string_view s, std::string_view suffix);
bool iequals(std::string_view a, std::string_view b);
// Well-formed UTF-8: no stray continuation bytes, overlong forms, surrogates or code points past U+10FFFF.
bool validUtf8(std::string_view s);

// RPC-style percent encoding: keep A-Z a-z 0-9 - _ . ~, everything else %XY upper-case.
std::string percentEncode(std::string_view s);
std::string urlDecode(std::string_view s, bool plusIsSpace);
// "a=1&b&c=%20" -> ordered decoded pairs (arrival order kept).
Pairs parseQuery(std::string_view query, bool plusIsSpace);

}  // namespace quorvane::emulator
