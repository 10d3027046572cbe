#include "capture_test_support.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

namespace quorvane::testing {

double DecodedSound::frequency() const {
    long crossings = 0;
    for (std::size_t i = 1; i < samples.size(); ++i)
        if (samples[i - 1] < 0 && samples[i] >= 0) ++crossings;
    return seconds() > 0 ? static_cast<double>(crossings) / seconds() : 0;
}

DecodedSound decodeSound(const std::string& path) {
    DecodedSound sound;
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) < 0) return sound;
    const AVCodec* codec = nullptr;
    int stream = -1;
    AVCodecContext* decoder = nullptr;
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    if (avformat_find_stream_info(format, nullptr) >= 0 &&
        (stream = av_find_best_stream(format, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0)) >= 0 &&
        (decoder = avcodec_alloc_context3(codec)) &&
        avcodec_parameters_to_context(decoder, format->streams[stream]->codecpar) >= 0 &&
        avcodec_open2(decoder, codec, nullptr) >= 0) {
        sound.opened = true;
        sound.sampleRate = decoder->sample_rate;
        auto take = [&] {
            while (avcodec_receive_frame(decoder, frame) == 0) {
                // The first channel, whatever the sample layout: planar or interleaved 16-bit PCM.
                int stride = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(frame->format)) ? 1 : frame->ch_layout.nb_channels;
                auto* data = reinterpret_cast<const std::int16_t*>(frame->extended_data[0]);
                for (int i = 0; i < frame->nb_samples; ++i) sound.samples.push_back(data[i * stride]);
            }
        };
        while (av_read_frame(format, packet) >= 0) {
            if (packet->stream_index == stream) avcodec_send_packet(decoder, packet);
            av_packet_unref(packet);
            take();
        }
        avcodec_send_packet(decoder, nullptr);
        take();
    }
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&decoder);
    avformat_close_input(&format);
    return sound;
}

}  // namespace quorvane::testing
