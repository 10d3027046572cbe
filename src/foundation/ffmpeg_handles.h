#pragma once
// Owning handles for FFmpeg's objects, so every exit path frees them, and FFmpeg's text for an error
// code. Header-only and not installed: only the libraries that link FFmpeg themselves include it.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <string>

namespace quorvane::foundation::ffmpeg {

struct InputCloser {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct OutputCloser {
    void operator()(AVFormatContext* context) const {
        if (context->pb) avio_closep(&context->pb);
        avformat_free_context(context);
    }
};
// A custom I/O context together with the buffer it was given.
struct IoContextFreer {
    void operator()(AVIOContext* io) const {
        av_freep(&io->buffer);
        avio_context_free(&io);
    }
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

using FormatContextPtr = std::unique_ptr<AVFormatContext, InputCloser>;  // from avformat_open_input
using OutputContextPtr = std::unique_ptr<AVFormatContext, OutputCloser>;
using IoContextPtr = std::unique_ptr<AVIOContext, IoContextFreer>;
using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextFreer>;
using FramePtr = std::unique_ptr<AVFrame, FrameFreer>;
using PacketPtr = std::unique_ptr<AVPacket, PacketFreer>;
using ResamplerPtr = std::unique_ptr<SwrContext, ResamplerFreer>;
using ScalerPtr = std::unique_ptr<SwsContext, ScalerFreer>;

// FFmpeg's text for an error code.
inline std::string errorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

// "<what>: <FFmpeg's text>", the shape of every FFmpeg failure this project reports.
inline std::string describe(const std::string& what, int code) { return what + ": " + errorText(code); }

}  // namespace quorvane::foundation::ffmpeg
