#include "svideo_media.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

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

AVFrame* noiseFrame(AVPixelFormat format, int width, int height, std::mt19937& noise) {
    AVFrame* frame = av_frame_alloc();
    if (!frame) return nullptr;
    frame->format = format;
    frame->width = width;
    frame->height = height;
    if (av_frame_get_buffer(frame, 0) < 0) {
        av_frame_free(&frame);
        return nullptr;
    }
    fillNoise(frame, noise);
    return frame;
}

}  // namespace

bool writeJpeg(const std::string& path, int width, int height) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    if (!codec) return false;
    AVCodecContext* encoder = avcodec_alloc_context3(codec);
    std::mt19937 noise(9);
    AVFrame* frame = noiseFrame(AV_PIX_FMT_YUVJ420P, width, height, noise);
    AVPacket* packet = av_packet_alloc();
    bool ok = encoder && frame && packet;
    if (ok) {
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

bool writeClip(const std::string& path, int frames) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    AVFormatContext* format = nullptr;
    if (!codec || avformat_alloc_output_context2(&format, nullptr, "mp4", path.c_str()) < 0) return false;
    AVStream* stream = avformat_new_stream(format, nullptr);
    AVCodecContext* encoder = avcodec_alloc_context3(codec);
    std::mt19937 noise(5);
    AVFrame* frame = noiseFrame(AV_PIX_FMT_YUV420P, 320, 240, noise);
    AVPacket* packet = av_packet_alloc();
    bool ok = stream && encoder && frame && packet;
    if (ok) {
        encoder->width = 320;
        encoder->height = 240;
        encoder->pix_fmt = AV_PIX_FMT_YUV420P;
        encoder->time_base = AVRational{1, 25};
        encoder->framerate = AVRational{25, 1};
        encoder->bit_rate = 8000000;
        if (format->oformat->flags & AVFMT_GLOBALHEADER) encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        ok = avcodec_open2(encoder, codec, nullptr) >= 0 &&
             avcodec_parameters_from_context(stream->codecpar, encoder) >= 0;
        stream->time_base = encoder->time_base;
        stream->avg_frame_rate = encoder->framerate;
    }
    ok = ok && avio_open(&format->pb, path.c_str(), AVIO_FLAG_WRITE) >= 0 && avformat_write_header(format, nullptr) >= 0;
    auto drain = [&](AVFrame* input) {
        if (avcodec_send_frame(encoder, input) < 0) return false;
        while (avcodec_receive_packet(encoder, packet) >= 0) {
            av_packet_rescale_ts(packet, encoder->time_base, stream->time_base);
            packet->stream_index = stream->index;
            if (av_interleaved_write_frame(format, packet) < 0) return false;
        }
        return true;
    };
    for (int i = 0; ok && i < frames; ++i) {
        ok = av_frame_make_writable(frame) >= 0;
        if (ok) fillNoise(frame, noise);
        frame->pts = i;
        ok = ok && drain(frame);
    }
    ok = ok && drain(nullptr) && av_write_trailer(format) >= 0;
    if (format && format->pb) avio_closep(&format->pb);
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&encoder);
    avformat_free_context(format);
    return ok;
}

}  // namespace quorvane::test
