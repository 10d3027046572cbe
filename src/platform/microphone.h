#pragma once
// Audio capture and the clock recordings run on.
//
// The microphone delivers interleaved signed 16-bit PCM in its own format; the recorder above
// converts it to what its settings ask for. The recording clock carries the timers that watch a
// recording (the limit watch, the overlay's countdown). Capture and timers share one clock so a
// headless device can drive both from a test: advancing its virtual time delivers the PCM of that
// span and fires the timers due in it, in time order, with no sleeping.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "platform/permissions.h"  // fourCharCode

namespace quorvane::platform {

// Audio format identifiers (AVFormatIDKey values).
inline constexpr std::uint32_t kAudioFormatLinearPCM = fourCharCode("lpcm");
inline constexpr std::uint32_t kAudioFormatMPEG4AAC = fourCharCode("aac ");
inline constexpr std::uint32_t kAudioFormatMPEGLayer3 = fourCharCode(".mp3");

struct PcmFormat {
    int sampleRate = 44100;
    int channels = 1;
};

// One capture: frames flow to the sink between start() and stop(), on the thread that drives the
// device (the main thread).
class CaptureStream {
public:
    virtual ~CaptureStream() = default;
    virtual void start() = 0;
    virtual void stop() = 0;
    // Called once, on the main thread, when the input ends by itself while capturing (a device that
    // went away, the end of a file). Inputs that cannot end never call it.
    virtual void setEndHandler(std::function<void()>) {}
};

class Microphone {
public:
    using Sink = std::function<void(const std::int16_t* interleaved, std::size_t frames)>;
    virtual ~Microphone() = default;
    // The format frames are delivered in.
    virtual PcmFormat format() const = 0;
    // A stopped capture feeding `sink`; nullptr when the input cannot be opened.
    virtual std::shared_ptr<CaptureStream> openCapture(Sink sink) = 0;

    // The installed microphone; until a family installs one, a microphone that opens no capture.
    // Never null. Safe from any thread.
    static std::shared_ptr<Microphone> current();
    // Installs `microphone` (nullptr restores the one that opens nothing); returns the previous one.
    static std::shared_ptr<Microphone> setCurrent(std::shared_ptr<Microphone> microphone);
};

class RecordingTimer {
public:
    virtual ~RecordingTimer() = default;
    // No tick starts after it returns.
    virtual void invalidate() = 0;
    virtual bool isValid() const = 0;
};

class RecordingClock {
public:
    virtual ~RecordingClock() = default;
    // Seconds since the clock's origin.
    virtual double now() const = 0;
    // Calls `tick` on the main thread `firstAfter` seconds from now, then every `interval` seconds,
    // until invalidated.
    virtual std::shared_ptr<RecordingTimer> scheduleRepeating(double firstAfter, double interval,
                                                              std::function<void()> tick) = 0;

    // The installed clock, from the same family as the microphone. Until one is installed, a
    // steady clock whose timers never tick (nothing records without a microphone). Never null.
    static std::shared_ptr<RecordingClock> current();
    // Installs `clock` (nullptr restores the idle one); returns the previous one.
    static std::shared_ptr<RecordingClock> setCurrent(std::shared_ptr<RecordingClock> clock);
};

}  // namespace quorvane::platform
