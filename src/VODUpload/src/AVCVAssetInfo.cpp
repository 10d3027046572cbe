#include "VODUpload/src/AVCVAssetInfo.h"

#include <dlfcn.h>

#include <atomic>
#include <memory>

extern "C" {
#include <libavformat/avformat.h>
}

#include "VODUpload/src/VODInnerFileInfo.h"

namespace quorvane {

namespace {

// FFmpeg's format library is loaded the first time a media file's facts are read rather than when
// the program starts: libavformat brings its codecs and network protocols, over a hundred shared
// libraries and most of a small program's start-up time, which uploading other files does without.
struct MediaFormatLibrary {
    decltype(&avformat_open_input) openInput;
    decltype(&avformat_find_stream_info) findStreamInfo;
    decltype(&avformat_close_input) closeInput;
    decltype(&av_stream_get_side_data) streamSideData;
    decltype(&av_log_set_level) setLogLevel;
};

std::atomic<bool> silenced{false};
std::atomic<bool> loaded{false};

template <typename Function>
bool bind(void* handle, const char* name, Function& function) {
    function = reinterpret_cast<Function>(::dlsym(handle, name));
    return function != nullptr;
}

const MediaFormatLibrary* load() {
    // The major version the headers describe: another one may lay its structures out differently.
    const std::string soname = "libavformat.so." + std::to_string(LIBAVFORMAT_VERSION_MAJOR);
    void* handle = ::dlopen(soname.c_str(), RTLD_LAZY | RTLD_LOCAL);
    if (handle == nullptr) return nullptr;
    static MediaFormatLibrary library;
    // av_log_set_level is libavutil's, found through libavformat's own dependencies.
    if (!bind(handle, "avformat_open_input", library.openInput) ||
        !bind(handle, "avformat_find_stream_info", library.findStreamInfo) ||
        !bind(handle, "avformat_close_input", library.closeInput) ||
        !bind(handle, "av_stream_get_side_data", library.streamSideData) ||
        !bind(handle, "av_log_set_level", library.setLogLevel))
        return nullptr;
    // In this order, so a silencing call racing the load is applied by one side or the other.
    loaded = true;
    if (silenced) library.setLogLevel(AV_LOG_QUIET);
    return &library;
}

// The loaded library; nullptr when it cannot be loaded (the facts then read as zeros).
const MediaFormatLibrary* mediaFormatLibrary() {
    static const MediaFormatLibrary* library = load();
    return library;
}

struct InputCloser {
    void operator()(AVFormatContext* context) const { mediaFormatLibrary()->closeInput(&context); }
};
using Input = std::unique_ptr<AVFormatContext, InputCloser>;

// Opens the file and reads its stream facts; nullptr when it is not a readable media file. Like the
// platform's asset loader, it goes by the file's type as its extension names it: a file of another
// type has no tracks, and reading its facts does not load the format library.
Input open(const std::string& path) {
    if (VODInnerFileInfo::fileTypeForExtension(vodPathExtension(path)) == "other") return nullptr;
    const MediaFormatLibrary* library = mediaFormatLibrary();
    if (library == nullptr) return nullptr;
    AVFormatContext* context = nullptr;
    if (library->openInput(&context, path.c_str(), nullptr, nullptr) < 0) return nullptr;
    Input input(context);
    if (library->findStreamInfo(context, nullptr) < 0) return nullptr;
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
        reinterpret_cast<const int32_t*>(mediaFormatLibrary()->streamSideData(stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
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

void silenceMediaFormatLibrary() {
    silenced = true;
    if (loaded) mediaFormatLibrary()->setLogLevel(AV_LOG_QUIET);
}

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
