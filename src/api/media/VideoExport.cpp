// The export: streams that MP4 holds and the preset keeps are copied packet by packet; otherwise
// the video is decoded, scaled and encoded again (VideoEncoder). Audio is copied when it is AAC or
// MP3 and left out otherwise: re-encoding sound is not needed by any preset here.
#include "api/media/VideoExport.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <filesystem>
#include <memory>
#include <vector>

#include "api/media/VideoEncoder.h"
#include "foundation/ffmpeg_handles.h"

namespace quorvane::media {
namespace {

using foundation::ffmpeg::describe;

bool copiesVideo(AVCodecID codec, ExportPreset preset) {
    if (preset == ExportPreset::MediumQuality) return false;
    return codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC || codec == AV_CODEC_ID_MPEG4;
}

class Export {
public:
    Export(ExportPreset preset, double maxSeconds) : preset_(preset), maxSeconds_(maxSeconds) {}

    std::string run(const std::string& inputPath, const std::string& outputPath) {
        AVFormatContext* raw = nullptr;
        if (int rc = avformat_open_input(&raw, inputPath.c_str(), nullptr, nullptr); rc < 0) return describe("open", rc);
        input_.reset(raw);
        if (int rc = avformat_find_stream_info(input_.get(), nullptr); rc < 0) return describe("probe", rc);
        raw = nullptr;
        if (int rc = avformat_alloc_output_context2(&raw, nullptr, "mp4", outputPath.c_str()); rc < 0)
            return describe("output", rc);
        output_.reset(raw);
        if (auto error = planStreams(); !error.empty()) return error;
        if (int rc = avio_open(&output_->pb, outputPath.c_str(), AVIO_FLAG_WRITE); rc < 0) return describe("create", rc);
        AVDictionary* options = nullptr;
        av_dict_set(&options, "movflags", "+faststart", 0);  // optimised for network use
        int rc = avformat_write_header(output_.get(), &options);
        av_dict_free(&options);
        if (rc < 0) return describe("header", rc);
        if (auto error = copyPackets(); !error.empty()) return error;
        if (encoder_) {
            if (auto error = encoder_->finish(output_.get()); !error.empty()) return error;
        }
        if (int end = av_write_trailer(output_.get()); end < 0) return describe("trailer", end);
        return "";
    }

private:
    std::string planStreams() {
        int video = av_find_best_stream(input_.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
        if (video < 0) return "no video track";
        int audio = av_find_best_stream(input_.get(), AVMEDIA_TYPE_AUDIO, -1, video, nullptr, 0);
        outIndex_.assign(input_->nb_streams, -1);
        AVStream* in = input_->streams[video];
        if (preset_ == ExportPreset::Passthrough || copiesVideo(in->codecpar->codec_id, preset_)) {
            if (auto error = addCopy(video); !error.empty()) return error;
        } else {
            encoder_ = std::make_unique<VideoEncoder>();
            bool medium = preset_ == ExportPreset::MediumQuality;
            if (auto error = encoder_->open(in, output_.get(), medium); !error.empty()) return error;
            outIndex_[video] = encoder_->outputIndex();
        }
        if (audio >= 0) {
            AVCodecID codec = input_->streams[audio]->codecpar->codec_id;
            bool fits = codec == AV_CODEC_ID_AAC || codec == AV_CODEC_ID_MP3;
            if (fits || preset_ == ExportPreset::Passthrough) return addCopy(audio);
        }
        return "";
    }

    std::string addCopy(int index) {
        AVStream* in = input_->streams[index];
        AVStream* out = avformat_new_stream(output_.get(), nullptr);
        if (!out) return "no memory";
        if (int rc = avcodec_parameters_copy(out->codecpar, in->codecpar); rc < 0) return describe("copy", rc);
        out->codecpar->codec_tag = 0;
        out->time_base = in->time_base;
        copyDisplayMatrix(in, out);
        outIndex_[index] = out->index;
        return "";
    }

    // Seconds from the start of the file at which `packet` plays.
    double secondsOf(const AVPacket* packet) const {
        int64_t at = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
        if (at == AV_NOPTS_VALUE) return 0;
        const AVStream* stream = input_->streams[packet->stream_index];
        int64_t start = stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
        return (at - start) * av_q2d(stream->time_base);
    }

    std::string copyPackets() {
        foundation::ffmpeg::PacketPtr packet(av_packet_alloc());
        while (av_read_frame(input_.get(), packet.get()) >= 0) {
            int in = packet->stream_index;
            int out = outIndex_[in];
            bool beyond = maxSeconds_ > 0 && secondsOf(packet.get()) >= maxSeconds_;
            if (out < 0 || beyond) {
                av_packet_unref(packet.get());
                continue;
            }
            std::string error;
            if (encoder_ && out == encoder_->outputIndex()) {
                error = encoder_->push(packet.get(), output_.get());
            } else {
                av_packet_rescale_ts(packet.get(), input_->streams[in]->time_base, output_->streams[out]->time_base);
                packet->stream_index = out;
                packet->pos = -1;
                if (int rc = av_interleaved_write_frame(output_.get(), packet.get()); rc < 0) error = describe("write", rc);
            }
            av_packet_unref(packet.get());
            if (!error.empty()) return error;
        }
        return "";
    }

    ExportPreset preset_;
    double maxSeconds_;
    foundation::ffmpeg::FormatContextPtr input_;
    foundation::ffmpeg::OutputContextPtr output_;
    std::unique_ptr<VideoEncoder> encoder_;
    std::vector<int> outIndex_;
};

}  // namespace

ExportOutcome exportVideo(const std::string& input, const std::string& output, ExportPreset preset, double maxSeconds) {
    std::string error;
    {
        Export session(preset, maxSeconds);
        error = session.run(input, output);
    }  // closes the output before it may be removed
    if (error.empty()) return {ExportSessionStatusCompleted, ""};
    std::error_code ignored;
    std::filesystem::remove(output, ignored);
    return {ExportSessionStatusFailed, error};
}

}  // namespace quorvane::media
