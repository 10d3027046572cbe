// The façade's voice note: the microphone gate, the recording overlay on the key window, and the
// answer built from the recorded file.
#include <cstdio>

#include "api/QuorvaneApiManager.h"
#include "api/QuorvaneApiManagerGate.h"
#include "device/AudioRecordMaskView.h"
#include "foundation/temp_files.h"
#include "permission/LBXPermission.h"
#include "platform/view.h"

namespace quorvane {
namespace {

constexpr int kShortestRecordingSeconds = 3;

// Re-stores the recording under "media" as ".mp3" (whatever it was recorded as) and describes it.
Value recordingResult(const std::string& recordedPath, int seconds) {
    std::string bytes = foundation::readFile(recordedPath).value_or("");
    char size[32], duration[16];
    std::snprintf(size, sizeof size, "%.0f", static_cast<double>(bytes.size()) / 1000.0);
    std::snprintf(duration, sizeof duration, "%d", seconds);
    std::string path = QuorvaneApiManager::saveFile(bytes, kMediaDirectory, "mp3");
    QuorvaneApiManager::deleteSandboxFile(recordedPath);
    return Value{{"size", size}, {"duration", duration}, {"path", path},
                 {"timestamp", QuorvaneApiManager::getTimestamp()}};
}

}  // namespace

void QuorvaneApiManager::startAudioRecord(int maxSeconds, Controller controller, SuccessCallback successCallback,
                                          FailCallback failCallback) {
    passPermissionGate(LBXPermissionTypeMicrophone, kErrorWordNoMicrophonePermission, failCallback,
                       [maxSeconds, controller, successCallback] {
                           auto view = AudioRecordMaskView::initWithAudioRecordMaxTimeLimit(
                               maxSeconds, [controller, successCallback](const std::string& path, std::int32_t seconds) {
                                   if (seconds < kShortestRecordingSeconds) {
                                       showMBProgressHUDWithContent("说话时间太短", 2.0, controller);
                                       return;
                                   }
                                   if (successCallback) successCallback(recordingResult(path, seconds));
                               });
                           platform::Window::keyWindow()->addSubview(view);
                       });
}

}  // namespace quorvane
