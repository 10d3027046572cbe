#pragma once
// Host paths of media files survive a move of the sandbox: only the part after "/media/" names the
// file, which is looked up again under the current temporary directory.
#include <optional>
#include <string>

namespace quorvane {

// The last piece of `hostPath` split at "/media/"; nullopt when the separator is absent.
std::optional<std::string> mediaFileName(const std::string& hostPath);
// The last piece of `hostPath` split at "/media/" (the whole path when the separator is absent).
std::string lastMediaComponent(const std::string& hostPath);
// Temporary directory / "media" / the file's name ("" when the path has no separator).
std::string localMediaPath(const std::string& hostPath);

}  // namespace quorvane
