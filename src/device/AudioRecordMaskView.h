#pragma once
// The full-screen overlay of a voice note: the seconds left and a stop button. It starts the
// recording as soon as it is made, counts down once a second, and stops the recording when the
// user taps stop or the countdown reaches zero. Main thread only.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "device/AudioRecordTool.h"
#include "platform/microphone.h"
#include "platform/view.h"

namespace quorvane {

class AudioRecordMaskView : public platform::View {
public:
    // (file path, seconds spoken).
    using RecordStopCallbackType = std::function<void(const std::string& filePath, std::int32_t seconds)>;

    // The overlay sized to the main screen, recording already; the caller adds it to a window.
    static std::shared_ptr<AudioRecordMaskView> initWithAudioRecordMaxTimeLimit(std::int32_t limit,
                                                                                RecordStopCallbackType callback);
    // A countdown still running ends with the overlay.
    ~AudioRecordMaskView() override;
    // The stop button's action (also the countdown's at zero): stops the recording, removes the overlay.
    void recordStopBtnClick(platform::Button* sender);

    std::shared_ptr<platform::Label> durationLab() const { return durationLab_.lock(); }
    std::shared_ptr<platform::Button> stopButton() const { return stopButton_.lock(); }
    const std::shared_ptr<platform::RecordingTimer>& timer() const { return timer_; }
    const RecordStopCallbackType& RecordStopCallback() const { return RecordStopCallback_; }
    std::int32_t currentTime() const { return currentTime_; }
    const std::shared_ptr<AudioRecordTool>& audioRecordTool() const { return audioRecordTool_; }
    std::int32_t audioRecordMaxTimeLimit() const { return audioRecordMaxTimeLimit_; }

private:
    void loadLayout();
    void startRecording();
    void startCountdown();
    void countdownTick();

    std::weak_ptr<platform::Label> durationLab_;
    std::weak_ptr<platform::Button> stopButton_;
    std::shared_ptr<platform::RecordingTimer> timer_;
    RecordStopCallbackType RecordStopCallback_;
    std::int32_t currentTime_ = 0;
    std::int32_t countdown_ = 0;
    std::shared_ptr<AudioRecordTool> audioRecordTool_;
    std::int32_t audioRecordMaxTimeLimit_ = 0;
};

}  // namespace quorvane
