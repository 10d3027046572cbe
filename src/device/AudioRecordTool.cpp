#include "device/AudioRecordTool.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "foundation/log.h"
#include "foundation/temp_files.h"
#include "platform/audio_session.h"

namespace quorvane {
namespace {

// Parameters are read by their numeric value: numbers as they are, texts by their leading number
// ("8000", " 12abc" → 12); anything else counts as 0. Absent (or null) keys take the default.
const Value* parameter(const Value& param, const char* key) {
    if (!param.is_object()) return nullptr;
    auto it = param.find(key);
    return it == param.end() || it->is_null() ? nullptr : &*it;
}

double doubleAt(const Value& param, const char* key, double fallback) {
    const Value* value = parameter(param, key);
    if (!value) return fallback;
    if (value->is_number()) return value->get<double>();
    if (value->is_boolean()) return value->get<bool>() ? 1 : 0;
    if (value->is_string()) return std::strtod(value->get_ref<const std::string&>().c_str(), nullptr);
    return 0;
}

std::int32_t intAt(const Value& param, const char* key, std::int32_t fallback) {
    const Value* value = parameter(param, key);
    if (!value) return fallback;
    if (value->is_number_integer()) return value->get<std::int32_t>();
    if (value->is_string()) return static_cast<std::int32_t>(std::strtol(value->get_ref<const std::string&>().c_str(), nullptr, 10));
    return static_cast<std::int32_t>(doubleAt(param, key, fallback));
}

std::string textAt(const Value& param, const char* key, const std::string& fallback) {
    const Value* value = parameter(param, key);
    if (!value) return fallback;
    return value->is_string() ? value->get<std::string>() : value->dump();
}

std::uint32_t formatIdentifier(const std::string& format) {
    if (format == "mp3") return platform::kAudioFormatMPEGLayer3;
    if (format == "aac") return platform::kAudioFormatMPEG4AAC;
    return platform::kAudioFormatLinearPCM;
}

std::string appendingPathComponent(std::string base, const std::string& component) {
    while (base.size() > 1 && base.back() == '/') base.pop_back();
    return base + "/" + component;
}

}  // namespace

AudioRecordTool::~AudioRecordTool() {
    if (interruptionObserver_) foundation::NotificationCenter::defaultCenter().removeObserver(*interruptionObserver_);
    if (timer_) timer_->invalidate();
}

void AudioRecordTool::audioRecordStartWithParam(const Value& param, TriggerListener finish) {
    if (judgeStatus()) return;
    triggerListener_ = std::move(finish);
    if (audioRecorder_ && audioRecorder_->isRecording()) {
        emit("onError", "正在录音中");
        return;
    }
    maxRecordSecond_ = intAt(param, "duration", 60);
    double sampleRate = doubleAt(param, "sampleRate", 8000.0);
    std::int32_t channels = intAt(param, "numberOfChannels", 2);
    double bitRate = doubleAt(param, "encodeBitRate", 48000.0);
    std::string format = textAt(param, "format", "aac");

    activateSession();
    chooseFile(format);
    settings_ = Value::object();
    settings_[AVSampleRateKey] = static_cast<float>(sampleRate);
    settings_[AVFormatIDKey] = formatIdentifier(format);
    settings_[AVLinearPCMBitDepthKey] = 16;
    settings_[AVNumberOfChannelsKey] = channels;
    settings_[AVEncoderAudioQualityKey] = AVAudioQualityHigh;
    settings_[AVEncoderBitRateKey] = static_cast<float>(bitRate);
    audioRecorder_ = AudioRecorder::initWithURL(filePath_, settings_, nullptr);
    if (audioRecorder_) audioRecorder_->setDelegate(weak_from_this());
    startRecorder();
}

void AudioRecordTool::activateSession() {
    auto session = platform::SharedAudioSession::current();
    session->setCategory(platform::AVAudioSessionCategoryRecord);
    session->setActive(true, platform::AVAudioSessionSetActiveOptionNotifyOthersOnDeactivation);
    if (interruptionObserver_) return;  // one observer for the tool's lifetime
    std::weak_ptr<AudioRecordTool> weakSelf = weak_from_this();
    interruptionObserver_ = foundation::NotificationCenter::defaultCenter().addObserver(
        platform::AVAudioSessionInterruptionNotification, [weakSelf](const std::string&, const Value& userInfo) {
            if (auto self = weakSelf.lock()) self->sessionInterruptionHandle(userInfo);
        });
}

// With a limit each recording gets a fresh name; without one the same file is reused.
void AudioRecordTool::chooseFile(const std::string& format) {
    if (maxRecordSecond_ != 0) {
        filePath_ = getPathFromSandboxTempWithMiddleDir("media", "", format);
    } else {
        filePath_ = getPathFromSandboxTempWithMiddleDir("media", "AutoAudio", format);
        deleteSandboxFile(filePath_);
    }
}

void AudioRecordTool::startRecorder() {
    if (!audioRecorder_) {
        emit("onError", "初始化失败");
        foundation::logLine("音频格式和文件存储格式不匹配,无法初始化Recorder");
        return;
    }
    audioRecorder_->setMeteringEnabled(true);
    audioRecorder_->prepareToRecord();
    // The recorder's answer is not an outcome of its own: a microphone that cannot be opened leaves
    // a recorder that never records, so no "onStop" follows.
    audioRecorder_->record();
    emit("onStart", "ok");
    if (maxRecordSecond_ == 0) return;
    std::weak_ptr<AudioRecordTool> weakSelf = weak_from_this();
    timer_ = platform::RecordingClock::current()->scheduleRepeating(0.1, 0.1, [weakSelf] {
        if (auto self = weakSelf.lock()) self->recordSecondChange();
    });
    recordSecondChange();
}

void AudioRecordTool::audioRecordStop() {
    if (!judgeStatus()) return;
    foundation::logLine("结束录音");
    invalidateTimer();
    audioRecorder_->stop();
    platform::SharedAudioSession::current()->setActive(
        false, platform::AVAudioSessionSetActiveOptionNotifyOthersOnDeactivation);
}

bool AudioRecordTool::judgeStatus() const { return audioRecorder_ && audioRecorder_->isRecording(); }

// The session stays active on this path; only an explicit stop deactivates it.
void AudioRecordTool::recordSecondChange() {
    if (!audioRecorder_ || audioRecorder_->currentTime() < static_cast<double>(maxRecordSecond_)) return;
    audioRecorder_->stop();
    invalidateTimer();
}

void AudioRecordTool::sessionInterruptionHandle(const Value& userInfo) {
    if (!parameter(userInfo, platform::AVAudioSessionInterruptionTypeKey)) return;
    std::int32_t type = intAt(userInfo, platform::AVAudioSessionInterruptionTypeKey, 0);
    if (type == platform::AudioSessionInterruptionTypeBegan) {
        if (judgeStatus()) audioRecorder_->pause();
    } else if (type == platform::AudioSessionInterruptionTypeEnded) {
        if (audioRecorder_) audioRecorder_->record();
    }
}

void AudioRecordTool::audioRecorderDidFinishRecording(AudioRecorder&, bool successfully) {
    foundation::logLine("录音完成");
    if (successfully) emit("onStop", filePath_);
    else emit("onError", "录音失败");
}

void AudioRecordTool::audioRecorderEncodeErrorDidOccur(AudioRecorder&, const Error&) {
    foundation::logLine("录音失败");
}

void AudioRecordTool::emit(const std::string& name, const std::string& data) const {
    if (triggerListener_) triggerListener_(name, data);
}

void AudioRecordTool::invalidateTimer() {
    if (timer_) timer_->invalidate();
    timer_.reset();
}

std::string AudioRecordTool::getPathFromSandboxTempWithMiddleDir(const std::string& middleDir,
                                                                 const std::string& fileName,
                                                                 const std::string& fileSuffix) {
    std::string base = foundation::temporaryDirectory();
    if (!middleDir.empty()) base = appendingPathComponent(base, middleDir);
    std::error_code ignored;
    if (!std::filesystem::exists(base, ignored)) std::filesystem::create_directories(base, ignored);
    std::string name = fileName.empty() ? foundation::globallyUniqueString() : fileName;
    return appendingPathComponent(base, name + "." + fileSuffix);
}

void AudioRecordTool::deleteSandboxFile(const std::string& fileURL) {
    constexpr std::string_view scheme = "file://";
    std::string path = fileURL.starts_with(scheme) ? fileURL.substr(scheme.size()) : fileURL;
    if (path.empty()) return;
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
}

}  // namespace quorvane
