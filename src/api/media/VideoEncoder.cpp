#include "api/media/VideoEncoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cstring>

#include "api/media/VideoExport.h"
#include "foundation/ffmpeg_handles.h"

namespace quorvane::media {
namespace {

using foundation::ffmpeg::describe;

// The size that fits the medium box (long side 568, short side 320) without growing, kept even.
void mediumSize(int width, int height, int& outWidth, int& outHeight) {
    bool landscape = width >= height;
    double boxW = landscape ? 568 : 320, boxH = landscape ? 320 : 568;
    double scale = std::min({1.0, boxW / width, boxH / height});
    outWidth = std::max(2, static_cast<int>(width * scale) & ~1);
    outHeight = std::max(2, static_cast<int>(height * scale) & ~1);
}

const AVCodec* findEncoder() {
    if (const AVCodec* x264 = avcodec_find_encoder_by_name("libx264")) return x264;
    return avcodec_find_encoder(AV_CODEC_ID_MPEG4);
}

}  // namespace

std::string videoEncoderName() {
    const AVCodec* codec = findEncoder();
    return codec ? codec->name : "";
}

void copyDisplayMatrix(const AVStream* in, AVStream* out) {
    size_t size = 0;
    const uint8_t* matrix = av_stream_get_side_data(in, AV_PKT_DATA_DISPLAYMATRIX, &size);
    if (!matrix) return;
    if (uint8_t* copy = av_stream_new_side_data(out, AV_PKT_DATA_DISPLAYMATRIX, size)) std::memcpy(copy, matrix, size);
}

VideoEncoder::~VideoEncoder() {
    avcodec_free_context(&decoder_);
    avcodec_free_context(&encoder_);
    sws_freeContext(scaler_);
    av_frame_free(&decoded_);
    av_frame_free(&scaled_);
}

std::string VideoEncoder::open(const AVStream* in, AVFormatContext* output, bool medium) {
    in_ = in;
    const AVCodec* decoder = avcodec_find_decoder(in->codecpar->codec_id);
    if (!decoder) return "no decoder for the video track";
    decoder_ = avcodec_alloc_context3(decoder);
    if (!decoder_) return "no memory";
    if (int rc = avcodec_parameters_to_context(decoder_, in->codecpar); rc < 0) return describe("decoder", rc);
    decoder_->pkt_timebase = in->time_base;
    if (int rc = avcodec_open2(decoder_, decoder, nullptr); rc < 0) return describe("decoder", rc);
    decoded_ = av_frame_alloc();
    scaled_ = av_frame_alloc();
    if (!decoded_ || !scaled_) return "no memory";
    return openEncoder(in, output, medium);
}

std::string VideoEncoder::openEncoder(const AVStream* in, AVFormatContext* output, bool medium) {
    const AVCodec* codec = findEncoder();
    if (!codec) return "no video encoder";
    encoder_ = avcodec_alloc_context3(codec);
    if (!encoder_) return "no memory";
    int width = in->codecpar->width, height = in->codecpar->height;
    if (medium) mediumSize(width, height, width, height);
    else width &= ~1, height &= ~1;
    AVRational rate = av_guess_frame_rate(nullptr, const_cast<AVStream*>(in), nullptr);
    if (rate.num <= 0 || rate.den <= 0) rate = {30, 1};
    encoder_->width = width;
    encoder_->height = height;
    encoder_->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder_->time_base = av_inv_q(rate);  // mpeg4 accepts no time base finer than 1/65535
    encoder_->framerate = rate;
    encoder_->sample_aspect_ratio = in->codecpar->sample_aspect_ratio;
    if (output->oformat->flags & AVFMT_GLOBALHEADER) encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (std::strcmp(codec->name, "libx264") == 0) {
        av_opt_set(encoder_->priv_data, "preset", "veryfast", 0);
        av_opt_set(encoder_->priv_data, "crf", medium ? "28" : "18", 0);
    } else {
        encoder_->flags |= AV_CODEC_FLAG_QSCALE;
        encoder_->global_quality = FF_QP2LAMBDA * (medium ? 8 : 2);
    }
    if (int rc = avcodec_open2(encoder_, codec, nullptr); rc < 0) return describe("encoder", rc);

    AVStream* out = avformat_new_stream(output, nullptr);
    if (!out) return "no memory";
    if (int rc = avcodec_parameters_from_context(out->codecpar, encoder_); rc < 0) return describe("encoder", rc);
    out->time_base = encoder_->time_base;
    copyDisplayMatrix(in, out);
    outIndex_ = out->index;

    scaled_->format = AV_PIX_FMT_YUV420P;
    scaled_->width = width;
    scaled_->height = height;
    if (int rc = av_frame_get_buffer(scaled_, 0); rc < 0) return describe("frame", rc);
    return "";
}

std::string VideoEncoder::push(const AVPacket* packet, AVFormatContext* output) {
    if (int rc = avcodec_send_packet(decoder_, packet); rc < 0 && rc != AVERROR(EAGAIN)) return describe("decode", rc);
    return drainDecoder(output);
}

std::string VideoEncoder::drainDecoder(AVFormatContext* output) {
    while (avcodec_receive_frame(decoder_, decoded_) == 0) {
        scaler_ = sws_getCachedContext(scaler_, decoded_->width, decoded_->height,
                                       static_cast<AVPixelFormat>(decoded_->format), encoder_->width,
                                       encoder_->height, AV_PIX_FMT_YUV420P, SWS_BICUBIC, nullptr, nullptr, nullptr);
        if (!scaler_ || av_frame_make_writable(scaled_) < 0) return "cannot scale the video";
        sws_scale(scaler_, decoded_->data, decoded_->linesize, 0, decoded_->height, scaled_->data, scaled_->linesize);
        int64_t at = decoded_->best_effort_timestamp;
        int64_t start = in_->start_time != AV_NOPTS_VALUE ? in_->start_time : 0;
        long long pts = at == AV_NOPTS_VALUE ? lastPts_ + 1
                                             : av_rescale_q(at - start, in_->time_base, encoder_->time_base);
        lastPts_ = std::max(pts, lastPts_ + 1);  // the encoder refuses times that do not advance
        scaled_->pts = lastPts_;
        av_frame_unref(decoded_);
        if (auto error = encode(scaled_, output); !error.empty()) return error;
    }
    return "";
}

std::string VideoEncoder::encode(AVFrame* frame, AVFormatContext* output) {
    if (int rc = avcodec_send_frame(encoder_, frame); rc < 0) return describe("encode", rc);
    AVPacket* packet = av_packet_alloc();
    if (!packet) return "no memory";
    std::string error;
    while (avcodec_receive_packet(encoder_, packet) == 0) {
        av_packet_rescale_ts(packet, encoder_->time_base, output->streams[outIndex_]->time_base);
        packet->stream_index = outIndex_;
        if (int rc = av_interleaved_write_frame(output, packet); rc < 0) {
            error = describe("write", rc);
            break;
        }
    }
    av_packet_free(&packet);
    return error;
}

std::string VideoEncoder::finish(AVFormatContext* output) {
    avcodec_send_packet(decoder_, nullptr);
    if (auto error = drainDecoder(output); !error.empty()) return error;
    return encode(nullptr, output);
}

}  // namespace quorvane::media
