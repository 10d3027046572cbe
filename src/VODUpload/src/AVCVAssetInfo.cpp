#include "VODUpload/src/AVCVAssetInfo.h"

#include <memory>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

namespace quorvane {

namespace {

struct InputCloser {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
using Input = std::unique_ptr<AVFormatContext, InputCloser>;

// Opens the file and reads its stream facts; nullptr when it is not a readable media file.
Input open(const std::string& path) {
    AVFormatContext* context = nullptr;
    if (avformat_open_input(&context, path.c_str(), nullptr, nullptr) < 0) return nullptr;
    Input input(context);
    if (avformat_find_stream_info(context, nullptr) < 0) return nullptr;
    return input;
}

const AVStream* firstTrack(const Input& input, AVMediaType type) {
    if (!input) return nullptr;
    for (unsigned i = 0; i < input->nb_streams; ++i)
        if (input->streams[i]->codecpar->codec_type == type) return input->streams[i];
    return nullptr;
}

bool isQuarterTurn(const AVStream* stream) {
    const auto* matrix =
        reinterpret_cast<const int32_t*>(av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
    if (matrix == nullptr) return false;
    // The matrix's b and c entries (16.16 fixed point) are 1 and -1, or -1 and 1.
    const double b = matrix[1] / 65536.0;
    const double c = matrix[3] / 65536.0;
    return (b == 1 && c == -1) || (b == -1 && c == 1);
}

float trackEnd(const std::string& path, AVMediaType type) {
    Input input = open(path);
    const AVStream* stream = firstTrack(input, type);
    if (stream == nullptr || stream->duration == AV_NOPTS_VALUE) return 0;
    const int64_t start = stream->start_time == AV_NOPTS_VALUE ? 0 : stream->start_time;
    return static_cast<float>((start + stream->duration) * av_q2d(stream->time_base));
}

}  // namespace

AVCVSize AVCVAssetInfo::AVCVNaturalSize(const std::string& asset) {
    Input input = open(asset);
    const AVStream* stream = firstTrack(input, AVMEDIA_TYPE_VIDEO);
    if (stream == nullptr) return {};
    AVCVSize size{static_cast<double>(stream->codecpar->width), static_cast<double>(stream->codecpar->height)};
    if (isQuarterTurn(stream)) std::swap(size.width, size.height);
    return size;
}

float AVCVAssetInfo::AVCVFrameRate(const std::string& asset) {
    Input input = open(asset);
    const AVStream* stream = firstTrack(input, AVMEDIA_TYPE_VIDEO);
    if (stream == nullptr) return 0;
    AVRational rate = stream->avg_frame_rate.num ? stream->avg_frame_rate : stream->r_frame_rate;
    return rate.den ? static_cast<float>(av_q2d(rate)) : 0.0f;
}

float AVCVAssetInfo::AVCVBitrate(const std::string& asset) {
    Input input = open(asset);
    const AVStream* stream = firstTrack(input, AVMEDIA_TYPE_VIDEO);
    return stream == nullptr ? 0.0f : static_cast<float>(stream->codecpar->bit_rate);
}

float AVCVAssetInfo::AVCVDuration(const std::string& asset) {
    Input input = open(asset);
    if (!input || input->duration == AV_NOPTS_VALUE) return 0;
    return static_cast<float>(static_cast<double>(input->duration) / AV_TIME_BASE);
}

float AVCVAssetInfo::AVCVVideoDuration(const std::string& asset) { return trackEnd(asset, AVMEDIA_TYPE_VIDEO); }

float AVCVAssetInfo::AVCVAudioDuration(const std::string& asset) { return trackEnd(asset, AVMEDIA_TYPE_AUDIO); }

}  // namespace quorvane
