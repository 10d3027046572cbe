#pragma once
// The façade's failure values: plain error words, and native error codes sent as
// {"code", "message"} dictionaries. The upload bridge fails with them too, so they live here, below both.
#include <string>

#include "foundation/value.h"

namespace quorvane {

inline constexpr const char* kErrorWordCancel = "Cancel";
inline constexpr const char* kErrorWordNoCameraPermission = "NoCameraPermission";
inline constexpr const char* kErrorWordNoAlbumPermission = "NoAlbumPermission";
inline constexpr const char* kErrorWordNoMicrophonePermission = "NoMicrophonePermission";
inline constexpr const char* kErrorWordNoLocationPermission = "no location permission";
inline constexpr const char* kErrorWordRequestFailed = "RequestFailed";
inline constexpr const char* kErrorWordFileNotExists = "FileNotExists";
inline constexpr const char* kErrorWordSystemInfoFailed = "获取手机系统信息失败";

struct NativeErrorCode {
    const char* code;
    const char* message;
    // The {"code", "message"} dictionary a fail callback receives.
    Value toValue() const { return Value{{"code", code}, {"message", message}}; }
};

// The configuration or ticket request failed and the server gave no code of its own.
inline constexpr NativeErrorCode kNativeErrorRequestFailed{"nativeErrorCode.000", "请求失败，请稍后再试"};
// The file is too large for the ticket-based video upload.
inline constexpr NativeErrorCode kNativeErrorFileTooLarge{"nativeErrorCode.012", "上传文件过大"};
// The video upload engine reported that its upload token expired.
inline constexpr NativeErrorCode kNativeErrorTokenExpired{"nativeErrorCode.013", "token expired"};
// A multi-file object-storage upload finished with no file uploaded.
inline constexpr NativeErrorCode kNativeErrorUploadFailed{"nativeErrorCode.014", "上传失败"};

// A server's own error passed through in the same two-key shape.
inline Value nativeError(std::string code, std::string message) {
    return Value{{"code", std::move(code)}, {"message", std::move(message)}};
}

}  // namespace quorvane
