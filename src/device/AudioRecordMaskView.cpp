#include "device/AudioRecordMaskView.h"

#include "foundation/log.h"
#include "platform/platform.h"

namespace quorvane {
namespace {

constexpr platform::Color kDimming{0, 0, 0, 0.4};

platform::Rect screenRect() {
    auto device = platform::Platform::current().device;
    auto bounds = device ? device->mainScreenBounds() : platform::ScreenBounds{};
    return {0, 0, bounds.width, bounds.height};
}

}  // namespace

std::shared_ptr<AudioRecordMaskView> AudioRecordMaskView::initWithAudioRecordMaxTimeLimit(
    std::int32_t limit, RecordStopCallbackType callback) {
    auto view = std::make_shared<AudioRecordMaskView>();
    view->loadLayout();
    view->setFrame(screenRect());
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

// The layout: a centred panel with the seconds label and the stop button; the overlay owns them
// through its subviews, the outlets only point at them.
void AudioRecordMaskView::loadLayout() {
    auto screen = screenRect();
    setBackgroundColor(kDimming);
    auto panel = std::make_shared<platform::View>();
    panel->setFrame({(screen.width - 200) / 2, (screen.height - 160) / 2, 200, 160});
    panel->setBackgroundColor({1, 1, 1, 1});
    addSubview(panel);

    auto label = std::make_shared<platform::Label>();
    label->setFrame({20, 20, 160, 60});
    panel->addSubview(label);
    durationLab_ = label;

    auto button = std::make_shared<platform::Button>();
    button->setFrame({40, 100, 120, 40});
    button->setTitle("结束录音");
    std::weak_ptr<AudioRecordMaskView> weakSelf = std::static_pointer_cast<AudioRecordMaskView>(shared_from_this());
    button->setAction([weakSelf](platform::Button& sender) {
        if (auto self = weakSelf.lock()) self->recordStopBtnClick(&sender);
    });
    panel->addSubview(button);
    stopButton_ = button;
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
