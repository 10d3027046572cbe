#include "platform/linux/capture/frame_converter.h"

namespace quorvane::platform::linux_capture {

using foundation::ffmpeg::CodecContextPtr;
using foundation::ffmpeg::FramePtr;
using foundation::ffmpeg::PacketPtr;
using foundation::ffmpeg::ScalerPtr;

namespace {

constexpr std::size_t kPoolSize = 4;  // frames in flight to the main thread, plus the one being filled

ScalerPtr makeScaler(const AVFrame& picture, AVPixelFormat target) {
    return ScalerPtr(sws_getContext(picture.width, picture.height, static_cast<AVPixelFormat>(picture.format),
                                    picture.width, picture.height, target, SWS_POINT, nullptr, nullptr, nullptr));
}

}  // namespace

std::shared_ptr<std::vector<std::uint8_t>> LumaConverter::freeBuffer(std::size_t size) {
    // A buffer only the pool holds is no longer in any frame.
    for (auto& buffer : pool_)
        if (buffer.use_count() == 1) {
            buffer->resize(size);
            return buffer;
        }
    auto buffer = std::make_shared<std::vector<std::uint8_t>>(size);
    if (pool_.size() < kPoolSize) pool_.push_back(buffer);
    return buffer;
}

VideoFrame LumaConverter::convert(const AVFrame& picture) {
    if (picture.width <= 0 || picture.height <= 0) return {};
    if (!scaler_ || picture.width != width_ || picture.height != height_ || picture.format != format_) {
        scaler_ = makeScaler(picture, AV_PIX_FMT_GRAY8);
        width_ = picture.width;
        height_ = picture.height;
        format_ = picture.format;
        pool_.clear();
    }
    if (!scaler_) return {};
    auto buffer = freeBuffer(std::size_t(width_) * std::size_t(height_));
    std::uint8_t* planes[4] = {buffer->data(), nullptr, nullptr, nullptr};
    int strides[4] = {width_, 0, 0, 0};
    if (sws_scale(scaler_.get(), picture.data, picture.linesize, 0, height_, planes, strides) != height_) return {};
    return VideoFrame{width_, height_, width_, buffer};
}

std::optional<std::string> encodePng(const AVFrame& picture) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
    if (!codec || picture.width <= 0 || picture.height <= 0) return std::nullopt;
    CodecContextPtr encoder(avcodec_alloc_context3(codec));
    FramePtr rgb(av_frame_alloc());
    PacketPtr packet(av_packet_alloc());
    auto scaler = makeScaler(picture, AV_PIX_FMT_RGB24);
    if (!encoder || !rgb || !packet || !scaler) return std::nullopt;
    encoder->width = picture.width;
    encoder->height = picture.height;
    encoder->pix_fmt = AV_PIX_FMT_RGB24;
    encoder->time_base = {1, 25};
    rgb->width = picture.width;
    rgb->height = picture.height;
    rgb->format = AV_PIX_FMT_RGB24;
    if (avcodec_open2(encoder.get(), codec, nullptr) < 0 || av_frame_get_buffer(rgb.get(), 0) < 0) return std::nullopt;
    sws_scale(scaler.get(), picture.data, picture.linesize, 0, picture.height, rgb->data, rgb->linesize);
    if (avcodec_send_frame(encoder.get(), rgb.get()) < 0 || avcodec_send_frame(encoder.get(), nullptr) < 0)
        return std::nullopt;
    std::string bytes;
    while (avcodec_receive_packet(encoder.get(), packet.get()) == 0) {
        bytes.append(reinterpret_cast<const char*>(packet->data), static_cast<std::size_t>(packet->size));
        av_packet_unref(packet.get());
    }
    if (bytes.empty()) return std::nullopt;
    return bytes;
}

}  // namespace quorvane::platform::linux_capture
