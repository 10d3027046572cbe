#include "two_track_clip.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <memory>
#include <vector>

namespace quorvane::testing {
namespace {

struct InputCloser {
    void operator()(AVFormatContext* f) const { avformat_close_input(&f); }
};
struct OutputFreer {
    void operator()(AVFormatContext* f) const {
        if (f && f->pb) avio_closep(&f->pb);
        avformat_free_context(f);
    }
};
using Input = std::unique_ptr<AVFormatContext, InputCloser>;

Input openInput(const std::string& path) {
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0) return nullptr;
    Input input(raw);
    if (avformat_find_stream_info(raw, nullptr) < 0) return nullptr;
    return input;
}

}  // namespace

bool writeTwoTrackClip(const std::string& path, const test::ClipSpec& first, const test::ClipSpec& second) {
    const std::string parts[] = {path + ".first.mp4", path + ".second.mp4"};
    if (!test::writeClip(parts[0], first) || !test::writeClip(parts[1], second)) return false;
    std::vector<Input> inputs;
    for (const auto& part : parts)
        if (auto input = openInput(part)) inputs.push_back(std::move(input));
        else return false;

    AVFormatContext* rawOutput = nullptr;
    if (avformat_alloc_output_context2(&rawOutput, nullptr, "mp4", path.c_str()) < 0) return false;
    std::unique_ptr<AVFormatContext, OutputFreer> output(rawOutput);
    std::vector<AVStream*> streams;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        const AVStream* source = inputs[i]->streams[0];
        AVStream* stream = avformat_new_stream(rawOutput, nullptr);
        if (!stream || avcodec_parameters_copy(stream->codecpar, source->codecpar) < 0) return false;
        stream->codecpar->codec_tag = 0;
        stream->time_base = source->time_base;
        stream->disposition = i == 1 ? AV_DISPOSITION_DEFAULT : 0;
        streams.push_back(stream);
    }
    if (avio_open(&rawOutput->pb, path.c_str(), AVIO_FLAG_WRITE) < 0 || avformat_write_header(rawOutput, nullptr) < 0)
        return false;
    AVPacket* packet = av_packet_alloc();
    bool ok = packet != nullptr;
    for (std::size_t i = 0; ok && i < inputs.size(); ++i) {
        while (ok && av_read_frame(inputs[i].get(), packet) >= 0) {
            av_packet_rescale_ts(packet, inputs[i]->streams[0]->time_base, streams[i]->time_base);
            packet->stream_index = static_cast<int>(i);
            packet->pos = -1;
            ok = av_interleaved_write_frame(rawOutput, packet) >= 0;
            av_packet_unref(packet);
        }
    }
    av_packet_free(&packet);
    return ok && av_write_trailer(rawOutput) >= 0;
}

}  // namespace quorvane::testing
