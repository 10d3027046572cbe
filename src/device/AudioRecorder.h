#pragma once
// The audio recorder (AVAudioRecorder): records the microphone into one file with the settings it
// was created with. Main thread only; capture frames arrive there too.
#include <cstdint>
#include <memory>
#include <string>

#include "device/AudioFileWriter.h"
#include "foundation/error.h"
#include "foundation/value.h"
#include "platform/microphone.h"

namespace quorvane {

// Keys of the settings dictionary.
inline constexpr const char* AVSampleRateKey = "AVSampleRateKey";
inline constexpr const char* AVFormatIDKey = "AVFormatIDKey";
inline constexpr const char* AVLinearPCMBitDepthKey = "AVLinearPCMBitDepthKey";
inline constexpr const char* AVNumberOfChannelsKey = "AVNumberOfChannelsKey";
inline constexpr const char* AVEncoderAudioQualityKey = "AVEncoderAudioQualityKey";
inline constexpr const char* AVEncoderBitRateKey = "AVEncoderBitRateKey";
inline constexpr int AVAudioQualityHigh = 0x60;

class AudioRecorder;

class AudioRecorderDelegate {
public:
    virtual ~AudioRecorderDelegate() = default;
    // After stop(): whether the file was completed.
    virtual void audioRecorderDidFinishRecording(AudioRecorder& recorder, bool successfully) = 0;
    // Encoding failed while recording; recording has stopped taking frames.
    virtual void audioRecorderEncodeErrorDidOccur(AudioRecorder& recorder, const Error& error) = 0;
};

class AudioRecorder : public std::enable_shared_from_this<AudioRecorder> {
public:
    // A recorder writing to `path` (a path or a "file://" URL); nullptr with `error` when the
    // settings and the file cannot be put together or the file cannot be created.
    static std::shared_ptr<AudioRecorder> initWithURL(const std::string& url, const Value& settings, Error* error);
    ~AudioRecorder();

    void setDelegate(std::weak_ptr<AudioRecorderDelegate> delegate) { delegate_ = std::move(delegate); }
    void setMeteringEnabled(bool enabled) { meteringEnabled_ = enabled; }
    bool isMeteringEnabled() const { return meteringEnabled_; }
    // Opens the microphone; false when it cannot be opened.
    bool prepareToRecord();
    // Starts or resumes; false when the microphone cannot be opened or the recording is over.
    bool record();
    void pause();
    // Completes the file and tells the delegate. Does nothing once stopped.
    void stop();
    bool isRecording() const { return recording_; }
    // Seconds recorded so far; 0 once stopped.
    double currentTime() const;
    const std::string& url() const { return path_; }

private:
    // Stops the capture and lets go of it: the microphone serves one capture at a time, and the next
    // recording may begin while this recorder is still held (by its overlay, by a host).
    void releaseCapture();
    AudioRecorder(std::string path, std::unique_ptr<AudioFileWriter> writer, platform::PcmFormat input);
    void receive(const std::int16_t* interleaved, std::size_t frames);
    void inputEnded();

    std::string path_;
    std::unique_ptr<AudioFileWriter> writer_;
    platform::PcmFormat input_;
    std::shared_ptr<platform::CaptureStream> capture_;
    std::weak_ptr<AudioRecorderDelegate> delegate_;
    std::int64_t framesRecorded_ = 0;
    bool meteringEnabled_ = false;
    bool recording_ = false;
    bool stopped_ = false;
    bool encodeFailed_ = false;
};

}  // namespace quorvane
