#pragma once
// Re-encoding of one video stream into an MP4 being written: decode, scale, encode (libx264 when
// FFmpeg has it, else its own mpeg4 encoder: Debian's libavcodec may be built without x264).
#include <memory>
#include <string>

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;
struct SwsContext;

namespace quorvane::media {

// Copies the stream's preferred transform (display matrix) so the output keeps its upright size.
void copyDisplayMatrix(const AVStream* in, AVStream* out);

class VideoEncoder {
public:
    VideoEncoder() = default;
    ~VideoEncoder();
    VideoEncoder(const VideoEncoder&) = delete;
    VideoEncoder& operator=(const VideoEncoder&) = delete;

    // Adds the encoded stream to `output`. `medium`: fit 568 × 320 and a lower quality; otherwise
    // the source size at a high quality. "" when ready, else why not.
    std::string open(const AVStream* in, AVFormatContext* output, bool medium);
    int outputIndex() const { return outIndex_; }
    // One packet of the source stream; encoded packets go to `output`.
    std::string push(const AVPacket* packet, AVFormatContext* output);
    // Drains the decoder and the encoder.
    std::string finish(AVFormatContext* output);

private:
    std::string openEncoder(const AVStream* in, AVFormatContext* output, bool medium);
    std::string encode(AVFrame* frame, AVFormatContext* output);
    std::string drainDecoder(AVFormatContext* output);

    AVCodecContext* decoder_ = nullptr;
    AVCodecContext* encoder_ = nullptr;
    SwsContext* scaler_ = nullptr;
    AVFrame* decoded_ = nullptr;
    AVFrame* scaled_ = nullptr;
    const AVStream* in_ = nullptr;
    int outIndex_ = -1;
    long long lastPts_ = -1;
};

}  // namespace quorvane::media
