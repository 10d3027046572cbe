#include "device/AudioFileWriter.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>

#include "foundation/ffmpeg_handles.h"

namespace quorvane {
namespace {

constexpr const char* kErrorDomain = "AudioFileWriter";
constexpr int kPcmChunkFrames = 1024;  // PCM encoders take any frame size; this keeps packets small

struct Container {
    const char* muxer;
    const char* encoder;
};

// The container and encoder of each format identifier; the file name's suffix does not choose them.
bool containerFor(std::uint32_t formatID, Container* out) {
    if (formatID == platform::kAudioFormatLinearPCM) *out = {"wav", "pcm_s16le"};
    else if (formatID == platform::kAudioFormatMPEG4AAC) *out = {"adts", "aac"};
    else if (formatID == platform::kAudioFormatMPEGLayer3) *out = {"mp3", "libmp3lame"};
    else return false;
    return true;
}

bool fail(Error* error, long long code, const std::string& what) {
    if (error) {
        *error = Error(kErrorDomain, code, code < 0 ? foundation::ffmpeg::describe(what, static_cast<int>(code)) : what);
    }
    return false;
}

bool sampleRateSupported(const AVCodec* codec, int rate) {
    if (!codec->supported_samplerates) return true;
    for (const int* r = codec->supported_samplerates; *r; ++r)
        if (*r == rate) return true;
    return false;
}

}  // namespace

struct AudioFileWriter::Impl {
    AVFormatContext* format = nullptr;
    AVCodecContext* codec = nullptr;
    AVStream* stream = nullptr;
    SwrContext* resampler = nullptr;
    AVAudioFifo* fifo = nullptr;
    AVPacket* packet = nullptr;
    int frameSize = kPcmChunkFrames;
    bool padLastFrame = false;
    std::int64_t nextPts = 0;
    bool finished = false;

    ~Impl() {
        if (format && format->pb) avio_closep(&format->pb);
        avformat_free_context(format);
        avcodec_free_context(&codec);
        swr_free(&resampler);
        if (fifo) av_audio_fifo_free(fifo);
        av_packet_free(&packet);
    }

    bool open(const std::string& path, const AudioFileSettings& settings, platform::PcmFormat input, Error* error);
    bool openEncoder(const AVCodec* encoder, const AudioFileSettings& settings, Error* error);
    bool openResampler(platform::PcmFormat input, Error* error);
    bool convert(const std::int16_t* interleaved, int frames, Error* error);
    bool drain(bool final, Error* error);
    bool encode(AVFrame* frame, Error* error);
};

bool AudioFileWriter::Impl::open(const std::string& path, const AudioFileSettings& settings,
                                 platform::PcmFormat input, Error* error) {
    Container container;
    if (!containerFor(settings.formatID, &container)) return fail(error, 0, "unsupported audio format identifier");
    if (settings.sampleRate <= 0 || settings.channels <= 0 || settings.channels > 8)
        return fail(error, 0, "unsupported sample rate or channel count");
    if (input.sampleRate <= 0 || input.channels <= 0) return fail(error, 0, "invalid input format");
    const AVCodec* encoder = avcodec_find_encoder_by_name(container.encoder);
    if (!encoder) return fail(error, 0, std::string("no encoder ") + container.encoder);
    if (!sampleRateSupported(encoder, settings.sampleRate)) return fail(error, 0, "sample rate not supported");

    int rc = avformat_alloc_output_context2(&format, nullptr, container.muxer, path.c_str());
    if (rc < 0) return fail(error, rc, "avformat_alloc_output_context2");
    stream = avformat_new_stream(format, nullptr);
    if (!stream) return fail(error, AVERROR(ENOMEM), "avformat_new_stream");
    if (!openEncoder(encoder, settings, error) || !openResampler(input, error)) return false;
    if ((rc = avio_open(&format->pb, path.c_str(), AVIO_FLAG_WRITE)) < 0) return fail(error, rc, "avio_open");
    if ((rc = avformat_write_header(format, nullptr)) < 0) return fail(error, rc, "avformat_write_header");
    packet = av_packet_alloc();
    fifo = av_audio_fifo_alloc(codec->sample_fmt, settings.channels, frameSize);
    if (!packet || !fifo) return fail(error, AVERROR(ENOMEM), "allocation");
    return true;
}

bool AudioFileWriter::Impl::openEncoder(const AVCodec* encoder, const AudioFileSettings& settings, Error* error) {
    codec = avcodec_alloc_context3(encoder);
    if (!codec) return fail(error, AVERROR(ENOMEM), "avcodec_alloc_context3");
    codec->sample_rate = settings.sampleRate;
    av_channel_layout_default(&codec->ch_layout, settings.channels);
    codec->sample_fmt = encoder->sample_fmts ? encoder->sample_fmts[0] : AV_SAMPLE_FMT_S16;
    if (settings.formatID != platform::kAudioFormatLinearPCM && settings.bitRate > 0)
        codec->bit_rate = settings.bitRate;
    codec->time_base = AVRational{1, settings.sampleRate};
    if (format->oformat->flags & AVFMT_GLOBALHEADER) codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    int rc = avcodec_open2(codec, encoder, nullptr);
    if (rc < 0) return fail(error, rc, "avcodec_open2");
    if ((rc = avcodec_parameters_from_context(stream->codecpar, codec)) < 0)
        return fail(error, rc, "avcodec_parameters_from_context");
    stream->time_base = codec->time_base;
    if (codec->frame_size > 0) frameSize = codec->frame_size;
    padLastFrame = codec->frame_size > 0 &&
                   !(encoder->capabilities & (AV_CODEC_CAP_SMALL_LAST_FRAME | AV_CODEC_CAP_VARIABLE_FRAME_SIZE));
    return true;
}

bool AudioFileWriter::Impl::openResampler(platform::PcmFormat input, Error* error) {
    AVChannelLayout inLayout;
    av_channel_layout_default(&inLayout, input.channels);
    int rc = swr_alloc_set_opts2(&resampler, &codec->ch_layout, codec->sample_fmt, codec->sample_rate, &inLayout,
                                 AV_SAMPLE_FMT_S16, input.sampleRate, 0, nullptr);
    av_channel_layout_uninit(&inLayout);
    if (rc < 0) return fail(error, rc, "swr_alloc_set_opts2");
    if ((rc = swr_init(resampler)) < 0) return fail(error, rc, "swr_init");
    return true;
}

// Resamples the input (none: flushes the resampler) into the FIFO in the encoder's sample format.
bool AudioFileWriter::Impl::convert(const std::int16_t* interleaved, int frames, Error* error) {
    int capacity = swr_get_out_samples(resampler, frames);
    if (capacity <= 0) return true;
    uint8_t** planes = nullptr;
    int rc = av_samples_alloc_array_and_samples(&planes, nullptr, codec->ch_layout.nb_channels, capacity,
                                                codec->sample_fmt, 0);
    if (rc < 0) return fail(error, rc, "av_samples_alloc_array_and_samples");
    const uint8_t* in = reinterpret_cast<const uint8_t*>(interleaved);
    int converted = swr_convert(resampler, planes, capacity, interleaved ? &in : nullptr, frames);
    if (converted > 0 && av_audio_fifo_write(fifo, reinterpret_cast<void**>(planes), converted) < converted)
        converted = AVERROR(ENOMEM);
    av_freep(&planes[0]);
    av_freep(&planes);
    return converted < 0 ? fail(error, converted, "swr_convert") : true;
}

// Encodes whole frames from the FIFO; on the final drain also the remainder (padded with silence
// where the encoder wants full frames).
bool AudioFileWriter::Impl::drain(bool final, Error* error) {
    while (av_audio_fifo_size(fifo) >= frameSize || (final && av_audio_fifo_size(fifo) > 0)) {
        int available = std::min(av_audio_fifo_size(fifo), frameSize);
        AVFrame* frame = av_frame_alloc();
        if (!frame) return fail(error, AVERROR(ENOMEM), "av_frame_alloc");
        frame->nb_samples = padLastFrame ? frameSize : available;
        frame->format = codec->sample_fmt;
        frame->sample_rate = codec->sample_rate;
        av_channel_layout_copy(&frame->ch_layout, &codec->ch_layout);
        int rc = av_frame_get_buffer(frame, 0);
        if (rc >= 0) {
            av_samples_set_silence(frame->extended_data, 0, frame->nb_samples, codec->ch_layout.nb_channels,
                                   codec->sample_fmt);
            av_audio_fifo_read(fifo, reinterpret_cast<void**>(frame->extended_data), available);
            frame->pts = nextPts;
            nextPts += frame->nb_samples;
        }
        bool ok = rc >= 0 ? encode(frame, error) : fail(error, rc, "av_frame_get_buffer");
        av_frame_free(&frame);
        if (!ok) return false;
    }
    return true;
}

// Sends a frame (nullptr: end of stream) and writes every packet the encoder has ready.
bool AudioFileWriter::Impl::encode(AVFrame* frame, Error* error) {
    int rc = avcodec_send_frame(codec, frame);
    if (rc < 0) return fail(error, rc, "avcodec_send_frame");
    for (;;) {
        rc = avcodec_receive_packet(codec, packet);
        if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return true;
        if (rc < 0) return fail(error, rc, "avcodec_receive_packet");
        av_packet_rescale_ts(packet, codec->time_base, stream->time_base);
        packet->stream_index = stream->index;
        if ((rc = av_interleaved_write_frame(format, packet)) < 0) return fail(error, rc, "av_interleaved_write_frame");
    }
}

AudioFileWriter::AudioFileWriter(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
AudioFileWriter::~AudioFileWriter() = default;

std::unique_ptr<AudioFileWriter> AudioFileWriter::create(const std::string& path, const AudioFileSettings& settings,
                                                         platform::PcmFormat input, Error* error) {
    auto impl = std::make_unique<Impl>();
    if (!impl->open(path, settings, input, error)) return nullptr;
    return std::unique_ptr<AudioFileWriter>(new AudioFileWriter(std::move(impl)));
}

bool AudioFileWriter::write(const std::int16_t* interleaved, std::size_t frames, Error* error) {
    if (impl_->finished) return fail(error, 0, "the file is already finished");
    if (frames == 0) return true;
    return impl_->convert(interleaved, static_cast<int>(frames), error) && impl_->drain(false, error);
}

bool AudioFileWriter::finish(Error* error) {
    if (impl_->finished) return fail(error, 0, "the file is already finished");
    impl_->finished = true;
    bool ok = impl_->convert(nullptr, 0, error) && impl_->drain(true, error) && impl_->encode(nullptr, error);
    int rc = av_write_trailer(impl_->format);
    if (ok && rc < 0) ok = fail(error, rc, "av_write_trailer");
    rc = avio_closep(&impl_->format->pb);
    if (ok && rc < 0) ok = fail(error, rc, "avio_closep");
    return ok;
}

}  // namespace quorvane
