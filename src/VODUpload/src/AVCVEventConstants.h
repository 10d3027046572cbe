#pragma once
// The keys and values of the event envelope that callers put into every event's common parameters.
namespace quorvane {

inline constexpr const char* AVCVEventProductKey = "pd";
inline constexpr const char* AVCVEventProductPlayer = "player";
inline constexpr const char* AVCVEventProductPusher = "pusher";
inline constexpr const char* AVCVEventProductMixer = "mixer";
inline constexpr const char* AVCVEventProductSvideo = "svideo";
inline constexpr const char* AVCVEventProductUpload = "upload";

inline constexpr const char* AVCVEventSubModuleKey = "sm";
inline constexpr const char* AVCVEventSubModulePlay = "play";
inline constexpr const char* AVCVEventSubModuleDownload = "download";
inline constexpr const char* AVCVEventSubModuleRecord = "record";
inline constexpr const char* AVCVEventSubModuleCut = "cut";
inline constexpr const char* AVCVEventSubModuleEdit = "edit";
inline constexpr const char* AVCVEventSubModuleUpload = "upload";

inline constexpr const char* AVCVEventModuleKey = "md";
inline constexpr const char* AVCVEventModuleSaasPlayer = "saas_player";
inline constexpr const char* AVCVEventModulePaasPlayer = "player";
inline constexpr const char* AVCVEventModuleMixer = "mixer";
inline constexpr const char* AVCVEventModulePublisher = "publisher";
inline constexpr const char* AVCVEventModuleSvideoBase = "svideo_basic";
inline constexpr const char* AVCVEventModuleSvideoStandard = "svideo_standard";
inline constexpr const char* AVCVEventModuleSvideoPro = "svideo_pro";
inline constexpr const char* AVCVEventModuleUploader = "uploader";

inline constexpr const char* AVCVEventVersionKey = "av";

}  // namespace quorvane
