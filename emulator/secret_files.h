#pragma once
// Files that hold keys: created readable by their owner only (0600) from the first byte, replaced
// atomically, so a crash never leaves half a key and nobody else can read one.
#include <optional>
#include <string>

namespace quorvane::emulator {

bool writePrivateFile(const std::string& path, const std::string& text);
std::optional<std::string> readWholeFile(const std::string& path);

}  // namespace quorvane::emulator
