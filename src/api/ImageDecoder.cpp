// Still-image decoding over FFmpeg: the bytes are probed from memory by the image demuxers, then
// the first picture is decoded to prove they hold one.
#include "api/ImageDecoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/mem.h>
}

#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

#include "foundation/ffmpeg_handles.h"

namespace quorvane {
namespace {

struct MemoryReader {
    const std::string* data;
    std::size_t offset = 0;
};

int readPacket(void* opaque, uint8_t* buffer, int size) {
    auto* reader = static_cast<MemoryReader*>(opaque);
    std::size_t left = reader->data->size() - reader->offset;
    if (left == 0) return AVERROR_EOF;
    std::size_t n = std::min<std::size_t>(left, static_cast<std::size_t>(size));
    std::memcpy(buffer, reader->data->data() + reader->offset, n);
    reader->offset += n;
    return static_cast<int>(n);
}

int64_t seekTo(void* opaque, int64_t offset, int whence) {
    auto* reader = static_cast<MemoryReader*>(opaque);
    const auto size = static_cast<int64_t>(reader->data->size());
    if (whence & AVSEEK_SIZE) return size;
    int64_t base = (whence & ~AVSEEK_FORCE) == SEEK_CUR ? static_cast<int64_t>(reader->offset)
                   : (whence & ~AVSEEK_FORCE) == SEEK_END ? size : 0;
    int64_t target = base + offset;
    if (target < 0 || target > size) return AVERROR(EINVAL);
    reader->offset = static_cast<std::size_t>(target);
    return target;
}

using foundation::ffmpeg::CodecContextPtr;
using foundation::ffmpeg::FormatContextPtr;
using foundation::ffmpeg::FramePtr;
using foundation::ffmpeg::IoContextPtr;
using foundation::ffmpeg::PacketPtr;

// Image demuxers read a single picture: "jpeg_pipe", "png_pipe", "webp_pipe", ... and "gif".
bool isStillImageFormat(const AVInputFormat* format) {
    std::string_view name = format ? format->name : "";
    return name == "gif" || (name.size() > 5 && name.substr(name.size() - 5) == "_pipe");
}

// Decodes the first picture of the stream into `image`'s size; true when one came out.
bool decodeFirstPicture(AVFormatContext* format, const AVStream* stream, platform::Image& image) {
    const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
    if (!codec) return false;
    CodecContextPtr context(avcodec_alloc_context3(codec));
    if (!context || avcodec_parameters_to_context(context.get(), stream->codecpar) < 0 ||
        avcodec_open2(context.get(), codec, nullptr) < 0)
        return false;
    PacketPtr packet(av_packet_alloc());
    FramePtr frame(av_frame_alloc());
    auto take = [&] {
        image.width = frame->width;
        image.height = frame->height;
        return true;
    };
    while (av_read_frame(format, packet.get()) >= 0) {
        bool ours = packet->stream_index == stream->index;
        int sent = ours ? avcodec_send_packet(context.get(), packet.get()) : 0;
        av_packet_unref(packet.get());
        if (sent < 0) return false;
        if (ours && avcodec_receive_frame(context.get(), frame.get()) == 0) return take();
    }
    avcodec_send_packet(context.get(), nullptr);  // drain a decoder that holds the picture back
    return avcodec_receive_frame(context.get(), frame.get()) == 0 && take();
}

}  // namespace

platform::ImagePtr imageWithData(const std::string& data) {
    if (data.empty()) return nullptr;
    constexpr int kBufferSize = 64 * 1024;
    MemoryReader reader{&data};
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferSize));
    if (!buffer) return nullptr;
    IoContextPtr io(avio_alloc_context(buffer, kBufferSize, 0, &reader, readPacket, nullptr, seekTo));
    if (!io) {
        av_free(buffer);
        return nullptr;
    }
    AVFormatContext* raw = avformat_alloc_context();
    if (!raw) return nullptr;
    raw->pb = io.get();
    raw->flags |= AVFMT_FLAG_CUSTOM_IO;
    if (avformat_open_input(&raw, nullptr, nullptr, nullptr) < 0) return nullptr;  // frees `raw` on failure
    FormatContextPtr format(raw);
    if (!isStillImageFormat(format->iformat) || format->nb_streams < 1) return nullptr;
    const AVStream* stream = format->streams[0];
    auto image = std::make_shared<platform::Image>();
    if (stream->codecpar->codec_type != AVMEDIA_TYPE_VIDEO || !decodeFirstPicture(format.get(), stream, *image))
        return nullptr;
    image->format = avcodec_get_name(stream->codecpar->codec_id);
    image->data = data;
    return image;
}

}  // namespace quorvane
