#include "device/AudioRecorder.h"

#include <cmath>
#include <utility>

namespace quorvane {
namespace {

double number(const Value& settings, const char* key, double fallback) {
    auto it = settings.find(key);
    return it != settings.end() && it->is_number() ? it->get<double>() : fallback;
}

AudioFileSettings fileSettings(const Value& settings) {
    AudioFileSettings file;
    file.sampleRate = static_cast<int>(std::lround(number(settings, AVSampleRateKey, 44100)));
    file.formatID = static_cast<std::uint32_t>(number(settings, AVFormatIDKey, platform::kAudioFormatLinearPCM));
    file.bitDepth = static_cast<int>(number(settings, AVLinearPCMBitDepthKey, 16));
    file.channels = static_cast<int>(number(settings, AVNumberOfChannelsKey, 2));
    file.bitRate = std::llround(number(settings, AVEncoderBitRateKey, 0));
    return file;
}

}  // namespace

std::shared_ptr<AudioRecorder> AudioRecorder::initWithURL(const std::string& url, const Value& settings,
                                                          Error* error) {
    constexpr std::string_view scheme = "file://";
    std::string path = url.starts_with(scheme) ? url.substr(scheme.size()) : url;
    auto microphone = platform::Microphone::current();
    platform::PcmFormat input = microphone ? microphone->format() : platform::PcmFormat{};
    auto writer = AudioFileWriter::create(path, fileSettings(settings.is_object() ? settings : Value::object()),
                                          input, error);
    if (!writer) return nullptr;
    return std::shared_ptr<AudioRecorder>(new AudioRecorder(std::move(path), std::move(writer), input));
}

AudioRecorder::AudioRecorder(std::string path, std::unique_ptr<AudioFileWriter> writer, platform::PcmFormat input)
    : path_(std::move(path)), writer_(std::move(writer)), input_(input) {}

AudioRecorder::~AudioRecorder() {
    if (capture_) capture_->stop();
}

bool AudioRecorder::prepareToRecord() {
    if (stopped_) return false;
    if (capture_) return true;
    auto microphone = platform::Microphone::current();
    if (!microphone) return false;
    // The capture holds the recorder weakly: dropping the recorder ends the recording.
    std::weak_ptr<AudioRecorder> weakSelf = weak_from_this();
    capture_ = microphone->openCapture([weakSelf](const std::int16_t* interleaved, std::size_t frames) {
        if (auto self = weakSelf.lock()) self->receive(interleaved, frames);
    });
    if (!capture_) return false;
    capture_->setEndHandler([weakSelf] {
        if (auto self = weakSelf.lock()) self->inputEnded();
    });
    return true;
}

bool AudioRecorder::record() {
    if (stopped_ || encodeFailed_ || !prepareToRecord()) return false;
    capture_->start();
    recording_ = true;
    return true;
}

void AudioRecorder::pause() {
    if (!recording_) return;
    capture_->stop();
    recording_ = false;
}

void AudioRecorder::stop() {
    if (stopped_) return;
    stopped_ = true;
    recording_ = false;
    releaseCapture();
    bool completed = writer_->finish() && !encodeFailed_;
    framesRecorded_ = 0;
    auto keep = shared_from_this();  // the delegate may drop its reference
    if (auto delegate = delegate_.lock()) delegate->audioRecorderDidFinishRecording(*this, completed);
}

void AudioRecorder::releaseCapture() {
    if (auto capture = std::exchange(capture_, nullptr)) capture->stop();
}

double AudioRecorder::currentTime() const {
    if (stopped_) return 0;
    return static_cast<double>(framesRecorded_) / input_.sampleRate;
}

// The input went away mid-recording: the file keeps what was captured, and the recording has
// finished unsuccessfully.
void AudioRecorder::inputEnded() {
    if (stopped_) return;
    stopped_ = true;
    recording_ = false;
    releaseCapture();
    writer_->finish();
    framesRecorded_ = 0;
    auto keep = shared_from_this();
    if (auto delegate = delegate_.lock()) delegate->audioRecorderDidFinishRecording(*this, false);
}

void AudioRecorder::receive(const std::int16_t* interleaved, std::size_t frames) {
    if (!recording_) return;
    Error error;
    if (!writer_->write(interleaved, frames, &error)) {
        encodeFailed_ = true;
        recording_ = false;
        capture_->stop();
        if (auto delegate = delegate_.lock()) delegate->audioRecorderEncodeErrorDidOccur(*this, error);
        return;
    }
    framesRecorded_ += static_cast<std::int64_t>(frames);
}

}  // namespace quorvane
