#pragma once
// Owning handles for the FFmpeg objects the capture code holds, so every exit path frees them.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <string>

namespace quorvane::platform::linux_capture {

struct FormatContextCloser {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct CodecContextFreer {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FrameFreer {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct PacketFreer {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct ResamplerFreer {
    void operator()(SwrContext* context) const { swr_free(&context); }
};
struct ScalerFreer {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};

using FormatContextPtr = std::unique_ptr<AVFormatContext, FormatContextCloser>;
using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextFreer>;
using FramePtr = std::unique_ptr<AVFrame, FrameFreer>;
using PacketPtr = std::unique_ptr<AVPacket, PacketFreer>;
using ResamplerPtr = std::unique_ptr<SwrContext, ResamplerFreer>;
using ScalerPtr = std::unique_ptr<SwsContext, ScalerFreer>;

// FFmpeg's text for an error code.
std::string errorText(int code);

}  // namespace quorvane::platform::linux_capture
