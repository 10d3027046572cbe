#include "support/media_files.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

#include <cstring>
#include <fstream>
#include <random>

namespace quorvane::test {
namespace {

void fillNoise(AVFrame* frame, std::mt19937& noise) {
    for (int plane = 0; plane < 3; ++plane) {
        const int w = plane ? frame->width / 2 : frame->width, h = plane ? frame->height / 2 : frame->height;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) frame->data[plane][y * frame->linesize[plane] + x] = noise() & 0xFF;
    }
}

void fillGradient(AVFrame* frame, int index) {
    for (int y = 0; y < frame->height; ++y)
        for (int x = 0; x < frame->width; ++x) frame->data[0][y * frame->linesize[0] + x] = (x + y + index * 3) & 0xFF;
    for (int plane = 1; plane < 3; ++plane)
        for (int y = 0; y < frame->height / 2; ++y)
            std::memset(frame->data[plane] + y * frame->linesize[plane], 128, frame->width / 2);
}

void fillPattern(AVFrame* frame, int index) {
    for (int y = 0; y < frame->height; ++y)
        for (int x = 0; x < frame->width; ++x)
            frame->data[0][y * frame->linesize[0] + x] = uint8_t((x * 7 + y * 3 + index * 11) ^ (x * y));
    for (int plane = 1; plane < 3; ++plane)
        std::memset(frame->data[plane], 128 + (index % 50) * (plane == 1 ? 1 : -1),
                    frame->linesize[plane] * frame->height / 2);
}

AVFrame* blankFrame(AVPixelFormat format, int width, int height) {
    AVFrame* frame = av_frame_alloc();
    if (!frame) return nullptr;
    frame->format = format;
    frame->width = width;
    frame->height = height;
    if (av_frame_get_buffer(frame, 0) < 0) av_frame_free(&frame);
    return frame;
}

const AVCodec* clipCodec(bool preferH264) {
    const AVCodec* codec = preferH264 ? avcodec_find_encoder_by_name("libx264") : nullptr;
    return codec ? codec : avcodec_find_encoder(AV_CODEC_ID_MPEG4);
}

bool rotate(AVStream* stream, int degrees) {
    if (degrees == 0) return true;
    auto* matrix = reinterpret_cast<int32_t*>(
        av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(int32_t)));
    if (!matrix) return false;
    av_display_rotation_set(matrix, degrees);
    return true;
}

// One open MP4 file with one video track; everything is released on destruction.
struct ClipWriter {
    AVFormatContext* format = nullptr;
    AVStream* stream = nullptr;
    AVCodecContext* encoder = nullptr;
    AVFrame* frame = nullptr;
    AVPacket* packet = av_packet_alloc();

    ~ClipWriter() {
        if (format && format->pb) avio_closep(&format->pb);
        av_packet_free(&packet);
        av_frame_free(&frame);
        avcodec_free_context(&encoder);
        avformat_free_context(format);
    }

    bool open(const std::string& path, const ClipSpec& spec) {
        const AVCodec* codec = clipCodec(spec.preferH264);
        if (!codec || !packet || avformat_alloc_output_context2(&format, nullptr, "mp4", path.c_str()) < 0)
            return false;
        stream = avformat_new_stream(format, nullptr);
        encoder = avcodec_alloc_context3(codec);
        frame = blankFrame(AV_PIX_FMT_YUV420P, spec.width, spec.height);
        if (!stream || !encoder || !frame) return false;
        encoder->width = spec.width;
        encoder->height = spec.height;
        encoder->pix_fmt = AV_PIX_FMT_YUV420P;
        encoder->time_base = AVRational{1, spec.fps};
        encoder->framerate = AVRational{spec.fps, 1};
        if (spec.bitRate > 0) encoder->bit_rate = spec.bitRate;
        if (spec.keyframeEvery > 0) encoder->gop_size = spec.keyframeEvery;
        if (format->oformat->flags & AVFMT_GLOBALHEADER) encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        if (avcodec_open2(encoder, codec, nullptr) < 0 ||
            avcodec_parameters_from_context(stream->codecpar, encoder) < 0)
            return false;
        stream->time_base = encoder->time_base;
        stream->avg_frame_rate = encoder->framerate;
        return rotate(stream, spec.rotation) && avio_open(&format->pb, path.c_str(), AVIO_FLAG_WRITE) >= 0 &&
               avformat_write_header(format, nullptr) >= 0;
    }

    // Sends one frame (nullptr flushes) and writes every packet the encoder has ready.
    bool encode(AVFrame* input) {
        if (avcodec_send_frame(encoder, input) < 0) return false;
        while (avcodec_receive_packet(encoder, packet) >= 0) {
            av_packet_rescale_ts(packet, encoder->time_base, stream->time_base);
            packet->stream_index = stream->index;
            if (av_interleaved_write_frame(format, packet) < 0) return false;
        }
        return true;
    }
};

}  // namespace

bool writeClip(const std::string& path, const ClipSpec& spec) {
    ClipWriter clip;
    if (!clip.open(path, spec)) return false;
    std::mt19937 noise(5);
    for (int i = 0; i < spec.frames; ++i) {
        if (av_frame_make_writable(clip.frame) < 0) return false;
        switch (spec.picture) {
            case ClipPicture::Noise: fillNoise(clip.frame, noise); break;
            case ClipPicture::Gradient: fillGradient(clip.frame, i); break;
            case ClipPicture::Pattern: fillPattern(clip.frame, i); break;
        }
        clip.frame->pts = i;
        if (!clip.encode(clip.frame)) return false;
    }
    return clip.encode(nullptr) && av_write_trailer(clip.format) >= 0;
}

bool writeJpeg(const std::string& path, int width, int height) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    if (!codec) return false;
    AVCodecContext* encoder = avcodec_alloc_context3(codec);
    AVFrame* frame = blankFrame(AV_PIX_FMT_YUVJ420P, width, height);
    AVPacket* packet = av_packet_alloc();
    bool ok = encoder && frame && packet;
    if (ok) {
        std::mt19937 noise(9);
        fillNoise(frame, noise);
        encoder->width = width;
        encoder->height = height;
        encoder->pix_fmt = AV_PIX_FMT_YUVJ420P;
        encoder->time_base = AVRational{1, 25};
        encoder->flags |= AV_CODEC_FLAG_QSCALE;
        frame->quality = FF_QP2LAMBDA * 2;
        ok = avcodec_open2(encoder, codec, nullptr) >= 0 && avcodec_send_frame(encoder, frame) >= 0 &&
             avcodec_send_frame(encoder, nullptr) >= 0 && avcodec_receive_packet(encoder, packet) >= 0;
    }
    if (ok) {
        std::ofstream out(path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(packet->data), packet->size);
        ok = static_cast<bool>(out);
    }
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&encoder);
    return ok;
}

}  // namespace quorvane::test
