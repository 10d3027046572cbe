#include "api/media/VideoAsset.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

#include <cmath>
#include <cstdio>
#include <filesystem>

#include "foundation/ffmpeg_handles.h"

namespace quorvane::media {
namespace {

// Seconds rounded up, from a count of `base` units.
long long ceilSeconds(int64_t value, AVRational base) {
    if (value <= 0 || value == AV_NOPTS_VALUE) return 0;
    int64_t micros = av_rescale_q_rnd(value, base, AVRational{1, 1'000'000},
                                      static_cast<AVRounding>(AV_ROUND_UP | AV_ROUND_PASS_MINMAX));
    return (micros + 999'999) / 1'000'000;
}

}  // namespace

std::optional<VideoFacts> readVideoFacts(const std::string& path) {
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0) return std::nullopt;
    foundation::ffmpeg::FormatContextPtr input(raw);
    if (avformat_find_stream_info(input.get(), nullptr) < 0) return std::nullopt;
    // The first video track, as the asset lists them; a cover picture is not a track.
    const AVStream* stream = nullptr;
    for (unsigned i = 0; i < input->nb_streams && !stream; ++i) {
        const AVStream* candidate = input->streams[i];
        if (candidate->codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
            !(candidate->disposition & AV_DISPOSITION_ATTACHED_PIC))
            stream = candidate;
    }
    if (!stream) return std::nullopt;
    double w = stream->codecpar->width, h = stream->codecpar->height;
    if (w <= 0 || h <= 0) return std::nullopt;

    VideoFacts facts;
    facts.width = static_cast<float>(w);
    facts.height = static_cast<float>(h);
    // The display matrix is the track's preferred transform: the size is mapped through it.
    if (const uint8_t* side = av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr)) {
        const auto* m = reinterpret_cast<const int32_t*>(side);
        auto fixed = [](int32_t v) { return v / 65536.0; };
        facts.width = static_cast<float>(std::fabs(fixed(m[0]) * w + fixed(m[3]) * h));
        facts.height = static_cast<float>(std::fabs(fixed(m[1]) * w + fixed(m[4]) * h));
    }
    facts.duration = input->duration != AV_NOPTS_VALUE ? ceilSeconds(input->duration, AV_TIME_BASE_Q)
                                                       : ceilSeconds(stream->duration, stream->time_base);
    return facts;
}

std::optional<Value> videoDictionary(const std::string& path) {
    auto facts = readVideoFacts(path);
    std::error_code error;
    auto bytes = std::filesystem::file_size(path, error);
    if (!facts || error) return std::nullopt;
    char size[32];
    std::snprintf(size, sizeof size, "%.0f", static_cast<double>(bytes) / 1000.0);
    Value video = Value::object();
    video["path"] = path;
    video["size"] = size;
    video["duration"] = facts->duration;
    video["type"] = "mp4";
    video["width"] = facts->width;
    video["height"] = facts->height;
    return video;
}

}  // namespace quorvane::media
