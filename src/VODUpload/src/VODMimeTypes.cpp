// Extension to MIME type, standing in for the platform's type-identifier database.
#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>
#include <unordered_map>

#include "VODUpload/src/VODInnerFileInfo.h"

namespace quorvane {
namespace {

const std::unordered_map<std::string_view, std::string_view>& mimeTable() {
    static const std::unordered_map<std::string_view, std::string_view> table = {
        // video
        {"mp4", "video/mp4"}, {"m4v", "video/x-m4v"}, {"mov", "video/quicktime"}, {"qt", "video/quicktime"},
        {"avi", "video/avi"}, {"mkv", "video/x-matroska"}, {"webm", "video/webm"}, {"wmv", "video/x-ms-wmv"},
        {"asf", "video/x-ms-asf"}, {"flv", "video/x-flv"}, {"f4v", "video/x-f4v"}, {"3gp", "video/3gpp"},
        {"3gpp", "video/3gpp"}, {"3g2", "video/3gpp2"}, {"mpg", "video/mpeg"}, {"mpeg", "video/mpeg"},
        {"m2v", "video/mpeg"}, {"ts", "video/mp2t"}, {"mts", "video/mp2t"}, {"m2ts", "video/mp2t"},
        {"vob", "video/mpeg"}, {"ogv", "video/ogg"}, {"rm", "application/vnd.rn-realmedia"},
        {"rmvb", "application/vnd.rn-realmedia-vbr"}, {"dv", "video/x-dv"},
        // audio
        {"mp3", "audio/mpeg"}, {"m4a", "audio/x-m4a"}, {"aac", "audio/aac"}, {"wav", "audio/wav"},
        {"aif", "audio/aiff"}, {"aiff", "audio/aiff"}, {"caf", "audio/x-caf"}, {"flac", "audio/flac"},
        {"ogg", "audio/ogg"}, {"oga", "audio/ogg"}, {"opus", "audio/opus"}, {"wma", "audio/x-ms-wma"},
        {"amr", "audio/amr"}, {"mid", "audio/midi"}, {"midi", "audio/midi"}, {"au", "audio/basic"},
        // still images
        {"jpg", "image/jpeg"}, {"jpeg", "image/jpeg"}, {"jpe", "image/jpeg"}, {"png", "image/png"},
        {"gif", "image/gif"}, {"bmp", "image/bmp"}, {"tif", "image/tiff"}, {"tiff", "image/tiff"},
        {"heic", "image/heic"}, {"heif", "image/heif"}, {"webp", "image/webp"}, {"ico", "image/vnd.microsoft.icon"},
        {"svg", "image/svg+xml"},
        // common documents, so they are known and still count as "other"
        {"txt", "text/plain"}, {"pdf", "application/pdf"}, {"json", "application/json"},
        {"zip", "application/zip"}, {"html", "text/html"},
    };
    return table;
}

}  // namespace

std::string VODInnerFileInfo::fileTypeForExtension(const std::string& extension) {
    if (extension.empty()) return "other";
    std::string lower = extension;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    auto it = mimeTable().find(lower);
    if (it == mimeTable().end()) return "other";
    std::string_view mime = it->second;
    if (mime.find("video") != std::string_view::npos) return "video";
    if (mime.find("audio") != std::string_view::npos) return "audio";
    if (mime.find("image") != std::string_view::npos) return "img";
    return "other";
}

}  // namespace quorvane
