#include "device/AudioRecordMaskView.h"

#include "device/InterfaceFile.h"
#include "foundation/log.h"
#include "platform/platform.h"

namespace quorvane {
namespace {

constexpr const char* kInterfaceFile = "QuorvaneApiSDKImage.bundle/AudioRecordMaskView";

platform::Rect screenRect() {
    auto device = platform::Platform::current().device;
    auto bounds = device ? device->mainScreenBounds() : platform::ScreenBounds{};
    return {0, 0, bounds.width, bounds.height};
}

}  // namespace

std::shared_ptr<AudioRecordMaskView> AudioRecordMaskView::initWithAudioRecordMaxTimeLimit(
    std::int32_t limit, RecordStopCallbackType callback) {
    auto view = std::make_shared<AudioRecordMaskView>();
    view->setFrame(screenRect());
    view->loadLayout();
    view->RecordStopCallback_ = std::move(callback);
    view->audioRecordTool_ = std::make_shared<AudioRecordTool>();
    view->audioRecordMaxTimeLimit_ = limit;
    view->startRecording();
    view->startCountdown();
    return view;
}

AudioRecordMaskView::~AudioRecordMaskView() {
    if (timer_) timer_->invalidate();
}

// The layout comes from the bundle's interface file; the overlay owns its views through its
// subviews, the outlets only point at them. A missing file leaves a bare overlay (and a log line):
// the recording and the countdown go on without anything to show them.
void AudioRecordMaskView::loadLayout() {
    std::weak_ptr<AudioRecordMaskView> weakSelf = std::static_pointer_cast<AudioRecordMaskView>(shared_from_this());
    auto outlets = loadInterfaceFile(kInterfaceFile, *this, {{"recordStopBtnClick:", [weakSelf](platform::Button& sender) {
                                                                 if (auto self = weakSelf.lock()) self->recordStopBtnClick(&sender);
                                                             }}});
    if (!outlets) return;
    durationLab_ = std::dynamic_pointer_cast<platform::Label>((*outlets)["durationLab"]);
    stopButton_ = std::dynamic_pointer_cast<platform::Button>((*outlets)["stopButton"]);
}

// The tool's own limit is twice the overlay's, so the countdown is what ends a recording. "acc" is
// deliberately none of the compressed formats: the recording is linear PCM in an ".acc" file.
void AudioRecordMaskView::startRecording() {
    Value param = Value::object();
    param["duration"] = std::to_string(2 * audioRecordMaxTimeLimit_);
    param["sampleRate"] = "8000";
    param["numberOfChannels"] = "2";
    param["encodeBitRate"] = "48000";
    param["format"] = "acc";
    std::weak_ptr<AudioRecordMaskView> weakSelf = std::static_pointer_cast<AudioRecordMaskView>(shared_from_this());
    audioRecordTool_->audioRecordStartWithParam(param, [weakSelf](const std::string& name, const std::string& data) {
        foundation::logLine("listenerName: :dsw: " + name + ", data: " + data);
        auto self = weakSelf.lock();
        if (!self || name != "onStop") return;
        if (self->RecordStopCallback_)
            self->RecordStopCallback_(data, self->audioRecordMaxTimeLimit_ - self->currentTime_);
    });
}

// Ticks at once and then every second: the first tick shows the whole limit, so a stop between k
// and k+1 seconds reports k.
void AudioRecordMaskView::startCountdown() {
    currentTime_ = audioRecordMaxTimeLimit_;
    countdown_ = audioRecordMaxTimeLimit_;
    std::weak_ptr<AudioRecordMaskView> weakSelf = std::static_pointer_cast<AudioRecordMaskView>(shared_from_this());
    timer_ = platform::RecordingClock::current()->scheduleRepeating(0, 1, [weakSelf] {
        if (auto self = weakSelf.lock()) self->countdownTick();
    });
}

void AudioRecordMaskView::countdownTick() {
    std::int32_t n = countdown_;
    currentTime_ = n;
    if (auto label = durationLab()) label->setText(std::to_string(n));
    if (n == 0) {
        if (timer_) timer_->invalidate();
        timer_.reset();
        recordStopBtnClick(nullptr);
    }
    countdown_ = n - 1;
}

void AudioRecordMaskView::recordStopBtnClick(platform::Button*) {
    auto keep = shared_from_this();  // removal drops the window's reference
    if (audioRecordTool_) audioRecordTool_->audioRecordStop();
    removeFromSuperview();
}

}  // namespace quorvane
