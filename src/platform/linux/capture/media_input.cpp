#include "platform/linux/capture/media_input.h"

extern "C" {
#include <libavdevice/avdevice.h>
}

#include <chrono>
#include <mutex>
#include <thread>

#include "platform/linux/capture/input_url.h"

namespace quorvane::platform::linux_capture {

using foundation::ffmpeg::errorText;

namespace {

struct DictionaryFreer {
    void operator()(AVDictionary* dictionary) const { av_dict_free(&dictionary); }
};

std::nullptr_t fail(OpenFailure* failure, int code, std::string message) {
    if (failure) *failure = {code, std::move(message)};
    return nullptr;
}

}  // namespace

std::unique_ptr<MediaInput> MediaInput::open(const std::string& url, Kind kind, OpenFailure* failure) {
    static std::once_flag devices;
    std::call_once(devices, [] { avdevice_register_all(); });
    auto parsed = parseInputUrl(url);
    if (!parsed) return fail(failure, AVERROR(EINVAL), "not an input URL: " + url);
    const AVInputFormat* format = nullptr;
    if (!parsed->format.empty()) {
        format = av_find_input_format(parsed->format.c_str());
        if (!format) return fail(failure, AVERROR_DEMUXER_NOT_FOUND, "unknown input format: " + parsed->format);
    }
    AVDictionary* rawOptions = nullptr;
    for (const auto& [key, value] : parsed->options) av_dict_set(&rawOptions, key.c_str(), value.c_str(), 0);
    std::unique_ptr<AVDictionary, DictionaryFreer> options(rawOptions);

    std::unique_ptr<MediaInput> input(new MediaInput);
    AVFormatContext* context = avformat_alloc_context();
    if (!context) return fail(failure, AVERROR(ENOMEM), "out of memory");
    // Set before opening: a device that blocks while opening can be interrupted too.
    context->interrupt_callback = {&MediaInput::interruptCallback, input.get()};
    rawOptions = options.release();
    int result = avformat_open_input(&context, parsed->input.c_str(), format, &rawOptions);
    options.reset(rawOptions);
    if (result < 0) return fail(failure, result, errorText(result));  // the context is freed
    input->format_.reset(context);
    if ((result = avformat_find_stream_info(context, nullptr)) < 0) return fail(failure, result, errorText(result));

    const AVCodec* codec = nullptr;
    auto type = kind == Kind::Audio ? AVMEDIA_TYPE_AUDIO : AVMEDIA_TYPE_VIDEO;
    input->stream_ = av_find_best_stream(context, type, -1, -1, &codec, 0);
    if (input->stream_ < 0 || !codec)
        return fail(failure, input->stream_ < 0 ? input->stream_ : AVERROR_DECODER_NOT_FOUND,
                    kind == Kind::Audio ? "no audio stream" : "no video stream");
    input->decoder_.reset(avcodec_alloc_context3(codec));
    input->packet_.reset(av_packet_alloc());
    if (!input->decoder_ || !input->packet_) return fail(failure, AVERROR(ENOMEM), "out of memory");
    if ((result = avcodec_parameters_to_context(input->decoder_.get(), context->streams[input->stream_]->codecpar)) < 0 ||
        (result = avcodec_open2(input->decoder_.get(), codec, nullptr)) < 0)
        return fail(failure, result, errorText(result));
    input->decoder_->pkt_timebase = context->streams[input->stream_]->time_base;
    return input;
}

int MediaInput::interruptCallback(void* opaque) {
    return static_cast<MediaInput*>(opaque)->interrupted_.load() ? 1 : 0;
}

void MediaInput::interrupt(bool interrupted) { interrupted_ = interrupted; }

AVRational MediaInput::timeBase() const { return format_->streams[stream_]->time_base; }

MediaInput::Read MediaInput::next(AVFrame* frame) {
    av_frame_unref(frame);
    for (;;) {
        int result = avcodec_receive_frame(decoder_.get(), frame);
        if (result == 0) return Read::Frame;
        if (result != AVERROR(EAGAIN)) {
            if (endReason_.empty()) endReason_ = result == AVERROR_EOF ? "end of input" : errorText(result);
            return Read::End;
        }
        if (interrupted_) return Read::Interrupted;
        result = av_read_frame(format_.get(), packet_.get());
        if (interrupted_ || result == AVERROR_EXIT) {
            av_packet_unref(packet_.get());
            return Read::Interrupted;
        }
        if (result == AVERROR(EAGAIN)) {  // a non-blocking device with nothing yet
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            continue;
        }
        if (result < 0) {
            // The input ended or went away: what the decoder still holds comes out first.
            endReason_ = result == AVERROR_EOF ? "end of input" : errorText(result);
            avcodec_send_packet(decoder_.get(), nullptr);
            if (draining_) return Read::End;
            draining_ = true;
            continue;
        }
        if (packet_->stream_index == stream_) result = avcodec_send_packet(decoder_.get(), packet_.get());
        av_packet_unref(packet_.get());
        if (result < 0 && result != AVERROR(EAGAIN)) {
            endReason_ = errorText(result);
            return Read::End;
        }
    }
}

}  // namespace quorvane::platform::linux_capture
