#pragma once
// Records a voice note: configures the shared audio session and a recorder, writes the file under
// the temporary directory, watches its own time limit, pauses and resumes around audio-session
// interruptions, and reports named events to its listener. Main thread only.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "device/AudioRecorder.h"
#include "foundation/notification_center.h"
#include "foundation/value.h"
#include "platform/microphone.h"

namespace quorvane {

class AudioRecordTool : public AudioRecorderDelegate, public std::enable_shared_from_this<AudioRecordTool> {
public:
    // (listener name, data): "onStart"/"ok", "onStop"/file path, "onError"/reason.
    using TriggerListener = std::function<void(const std::string& listenerName, const std::string& data)>;

    AudioRecordTool() = default;
    ~AudioRecordTool() override;
    AudioRecordTool(const AudioRecordTool&) = delete;
    AudioRecordTool& operator=(const AudioRecordTool&) = delete;

    // Starts a recording with "duration", "sampleRate", "numberOfChannels", "encodeBitRate" and
    // "format" (numbers or their texts). Ignored while a recording runs.
    void audioRecordStartWithParam(const Value& param, TriggerListener finish);
    // Stops a running recording and deactivates the session; nothing otherwise.
    void audioRecordStop();
    // A recorder exists and is recording.
    bool judgeStatus() const;
    // The limit watch's tick: stops the recorder once the limit is reached.
    void recordSecondChange();
    // The interruption observer: the notification's user information.
    void sessionInterruptionHandle(const Value& userInfo);

    void audioRecorderDidFinishRecording(AudioRecorder& recorder, bool successfully) override;
    void audioRecorderEncodeErrorDidOccur(AudioRecorder& recorder, const Error& error) override;

    // Temporary directory [/ middleDir] / "name.suffix", with a unique name when `fileName` is
    // empty; the directory is created (errors ignored).
    static std::string getPathFromSandboxTempWithMiddleDir(const std::string& middleDir, const std::string& fileName,
                                                           const std::string& fileSuffix);
    // Removes the item at a file URL or path, ignoring errors.
    static void deleteSandboxFile(const std::string& fileURL);

    const std::shared_ptr<AudioRecorder>& audioRecorder() const { return audioRecorder_; }
    const TriggerListener& triggerListener() const { return triggerListener_; }
    void setTriggerListener(TriggerListener listener) { triggerListener_ = std::move(listener); }
    const std::string& filePath() const { return filePath_; }
    const std::shared_ptr<platform::RecordingTimer>& timer() const { return timer_; }
    std::int32_t maxRecordSecond() const { return maxRecordSecond_; }
    void setMaxRecordSecond(std::int32_t seconds) { maxRecordSecond_ = seconds; }

private:
    void emit(const std::string& name, const std::string& data) const;
    void activateSession();
    void chooseFile(const std::string& format);
    void startRecorder();
    void invalidateTimer();

    std::shared_ptr<AudioRecorder> audioRecorder_;
    TriggerListener triggerListener_;
    std::string filePath_;
    std::shared_ptr<platform::RecordingTimer> timer_;
    std::int32_t maxRecordSecond_ = 0;
    Value settings_;
    std::optional<foundation::NotificationCenter::Token> interruptionObserver_;
};

}  // namespace quorvane
