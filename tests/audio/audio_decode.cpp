// Reads a recorded file back with libavformat/libavcodec: what it is and how much audio it holds.
#include <cmath>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "audio_test_support.h"

namespace quorvane::testing {
namespace {

// What the recorder's files decode to: PCM as interleaved 16-bit, AAC and MP3 as planar float.
double sampleAt(const AVFrame* frame, int index) {
    switch (frame->format) {
    case AV_SAMPLE_FMT_S16: return reinterpret_cast<const int16_t*>(frame->data[0])[index * frame->ch_layout.nb_channels] / 32768.0;
    case AV_SAMPLE_FMT_FLTP: return reinterpret_cast<const float*>(frame->data[0])[index];
    default: return 0;
    }
}

struct Reader {
    AVFormatContext* format = nullptr;
    AVCodecContext* codec = nullptr;
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    double squares = 0;
    ~Reader() {
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&codec);
        avformat_close_input(&format);
    }
    void receive(DecodedAudio& out) {
        while (avcodec_receive_frame(codec, frame) >= 0) {
            for (int i = 0; i < frame->nb_samples; ++i) squares += std::pow(sampleAt(frame, i), 2);
            out.frames += frame->nb_samples;
        }
    }
};

}  // namespace

DecodedAudio decodeAudioFile(const std::string& path) {
    av_log_set_level(AV_LOG_ERROR);  // keep the encoders' and probes' notes out of test output
    DecodedAudio out;
    Reader reader;
    if (avformat_open_input(&reader.format, path.c_str(), nullptr, nullptr) < 0) return out;
    if (avformat_find_stream_info(reader.format, nullptr) < 0) return out;
    const AVCodec* decoder = nullptr;
    int index = av_find_best_stream(reader.format, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
    if (index < 0 || !decoder) return out;
    reader.codec = avcodec_alloc_context3(decoder);
    avcodec_parameters_to_context(reader.codec, reader.format->streams[index]->codecpar);
    if (avcodec_open2(reader.codec, decoder, nullptr) < 0) return out;
    out.opened = true;
    out.container = reader.format->iformat->name;
    out.codec = decoder->name;
    out.sampleRate = reader.codec->sample_rate;
    out.channels = reader.codec->ch_layout.nb_channels;
    while (av_read_frame(reader.format, reader.packet) >= 0) {
        if (reader.packet->stream_index == index && avcodec_send_packet(reader.codec, reader.packet) >= 0)
            reader.receive(out);
        av_packet_unref(reader.packet);
    }
    avcodec_send_packet(reader.codec, nullptr);
    reader.receive(out);
    out.rms = out.frames ? std::sqrt(reader.squares / static_cast<double>(out.frames)) : 0;
    return out;
}

}  // namespace quorvane::testing
