#include "media_samples.h"

#include <vips/vips8>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/opt.h>
}

#include <cstring>

namespace quorvane::testing {
namespace {

void startVips() {
    static bool started = [] { return VIPS_INIT("media_tests") == 0; }();
    (void)started;
}

std::string save(vips::VImage image, const char* suffix, int orientation) {
    image = image.copy();
    if (orientation != 1) image.set(VIPS_META_ORIENTATION, orientation);
    void* buffer = nullptr;
    size_t length = 0;
    image.write_to_buffer(suffix, &buffer, &length, vips::VImage::option()->set("Q", 92));
    std::string out(static_cast<char*>(buffer), length);
    g_free(buffer);
    return out;
}

}  // namespace

std::string makeJpeg(int width, int height, int orientation) {
    startVips();
    auto noise = vips::VImage::gaussnoise(width, height, vips::VImage::option()->set("sigma", 40));
    auto rgb = noise.bandjoin({noise.rot180().flip(VIPS_DIRECTION_HORIZONTAL), noise.flip(VIPS_DIRECTION_VERTICAL)});
    return save(rgb.cast(VIPS_FORMAT_UCHAR).copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB)),
                ".jpg", orientation);
}

std::string makeHalvesJpeg(int width, int height, int orientation) {
    startVips();
    auto left = vips::VImage::black(width / 2, height).new_from_image({255, 0, 0});
    auto right = vips::VImage::black(width - width / 2, height).new_from_image({0, 0, 255});
    auto image = left.insert(right, width / 2, 0, vips::VImage::option()->set("expand", true));
    return save(image.cast(VIPS_FORMAT_UCHAR).copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB)),
                ".jpg", orientation);
}

std::string makeTransparentPng(int width, int height) {
    startVips();
    auto clear = vips::VImage::black(width / 2, height).new_from_image({255, 255, 255, 0});
    auto opaque = vips::VImage::black(width - width / 2, height).new_from_image({255, 255, 255, 255});
    auto image = clear.insert(opaque, width / 2, 0, vips::VImage::option()->set("expand", true));
    return save(image.cast(VIPS_FORMAT_UCHAR).copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB)),
                ".png", 1);
}

Picture readPicture(const std::string& path) {
    startVips();
    try {
        auto image = vips::VImage::new_from_file(path.c_str());
        image.avg();  // decodes every pixel: a broken file fails here
        return {image.width(), image.height(), image.bands(), true};
    } catch (const vips::VError&) {
        return {};
    }
}

int pixelBand(const std::string& path, int x, int y, int band) {
    startVips();
    auto values = vips::VImage::new_from_file(path.c_str()).getpoint(x, y);
    return static_cast<int>(values.at(band));
}

bool makeMp4(const std::string& path, int width, int height, int fps, int frames, int rotation) {
    const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
    if (!codec) codec = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    AVFormatContext* out = nullptr;
    if (!codec || avformat_alloc_output_context2(&out, nullptr, "mp4", path.c_str()) < 0) return false;
    AVCodecContext* encoder = avcodec_alloc_context3(codec);
    encoder->width = width;
    encoder->height = height;
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->time_base = {1, fps};
    encoder->framerate = {fps, 1};
    encoder->gop_size = fps;
    if (out->oformat->flags & AVFMT_GLOBALHEADER) encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    bool ok = avcodec_open2(encoder, codec, nullptr) >= 0;
    AVStream* stream = ok ? avformat_new_stream(out, nullptr) : nullptr;
    ok = stream && avcodec_parameters_from_context(stream->codecpar, encoder) >= 0;
    if (ok) {
        stream->time_base = encoder->time_base;
        if (rotation) {
            auto* matrix = reinterpret_cast<int32_t*>(av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, 36));
            av_display_rotation_set(matrix, rotation);
        }
        ok = avio_open(&out->pb, path.c_str(), AVIO_FLAG_WRITE) >= 0 && avformat_write_header(out, nullptr) >= 0;
    }
    AVFrame* frame = av_frame_alloc();
    AVPacket* packet = av_packet_alloc();
    frame->format = AV_PIX_FMT_YUV420P;
    frame->width = width;
    frame->height = height;
    ok = ok && av_frame_get_buffer(frame, 0) >= 0;
    auto drain = [&] {
        while (avcodec_receive_packet(encoder, packet) == 0) {
            av_packet_rescale_ts(packet, encoder->time_base, stream->time_base);
            packet->stream_index = stream->index;
            av_interleaved_write_frame(out, packet);
        }
    };
    for (int i = 0; ok && i < frames; ++i) {
        av_frame_make_writable(frame);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) frame->data[0][y * frame->linesize[0] + x] = uint8_t((x * 7 + y * 3 + i * 11) ^ (x * y));
        for (int p = 1; p < 3; ++p)
            std::memset(frame->data[p], 128 + (i % 50) * (p == 1 ? 1 : -1), frame->linesize[p] * height / 2);
        frame->pts = i;
        ok = avcodec_send_frame(encoder, frame) >= 0;
        drain();
    }
    if (ok) {
        avcodec_send_frame(encoder, nullptr);
        drain();
        ok = av_write_trailer(out) >= 0;
    }
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&encoder);
    if (out->pb) avio_closep(&out->pb);
    avformat_free_context(out);
    return ok;
}

}  // namespace quorvane::testing
