#pragma once
// Host paths of media files survive a move of the sandbox: only the part after "/media/" names the
// file, which is looked up again under the current temporary directory.
#include <optional>
#include <string>

namespace quorvane {

// A name that stays inside its directory: not empty, not "." or "..", no "/".
bool isPlainFileName(const std::string& name);
// The last piece of `hostPath` split at "/media/"; nullopt when the separator is absent or the
// piece is not a plain file name (so nothing outside "media" is ever reached).
std::optional<std::string> mediaFileName(const std::string& hostPath);
// The last piece of `hostPath` split at "/media/" (the whole path when the separator is absent);
// "" when that is not a plain file name.
std::string lastMediaComponent(const std::string& hostPath);
// Temporary directory / "media" / the file's name ("" when the path has no separator).
std::string localMediaPath(const std::string& hostPath);

}  // namespace quorvane
