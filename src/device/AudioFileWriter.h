#pragma once
// Encodes a recording into a file as it arrives, with FFmpeg: linear PCM in a WAV file, AAC in an
// ADTS stream, or MPEG layer 3. Input is interleaved signed 16-bit PCM in the microphone's format;
// it is resampled and re-channelled to the file's format on the way.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "foundation/error.h"
#include "platform/microphone.h"

namespace quorvane {

struct AudioFileSettings {
    std::uint32_t formatID = platform::kAudioFormatLinearPCM;
    int sampleRate = 44100;
    int channels = 2;
    int bitDepth = 16;     // linear PCM: 16 (anything else is written as 16)
    std::int64_t bitRate = 0;  // compressed formats; 0 lets the encoder choose
};

class AudioFileWriter {
public:
    // Creates the file and writes its header; nullptr with `error` set when the settings cannot be
    // encoded or the file cannot be created.
    static std::unique_ptr<AudioFileWriter> create(const std::string& path, const AudioFileSettings& settings,
                                                   platform::PcmFormat input, Error* error);
    ~AudioFileWriter();
    AudioFileWriter(const AudioFileWriter&) = delete;
    AudioFileWriter& operator=(const AudioFileWriter&) = delete;

    // Encodes the frames; false (with `error`) when encoding or writing failed.
    bool write(const std::int16_t* interleaved, std::size_t frames, Error* error = nullptr);
    // Flushes the encoder and writes the trailer; the file is complete after a true answer. Once only.
    bool finish(Error* error = nullptr);

private:
    struct Impl;
    explicit AudioFileWriter(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

}  // namespace quorvane
