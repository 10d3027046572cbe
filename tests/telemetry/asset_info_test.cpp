#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

#include "VODUpload/src/AVCVAssetInfo.h"

using namespace quorvane;

namespace {

struct ClipSpec {
    int width = 320;
    int height = 240;
    int fps = 25;
    int frames = 50;
    int rotation = 0;  // degrees, written as the track's display matrix
};

// Encodes `spec.frames` synthetic frames with the MPEG-4 part 2 encoder into an .mp4 at `path`.
// Returns false (and leaves a partial file) if any FFmpeg step fails.
bool writeClip(const std::string& path, const ClipSpec& spec) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    AVFormatContext* format = nullptr;
    if (!codec || avformat_alloc_output_context2(&format, nullptr, "mp4", path.c_str()) < 0) return false;
    AVStream* stream = avformat_new_stream(format, nullptr);
    AVCodecContext* encoder = avcodec_alloc_context3(codec);
    AVFrame* frame = av_frame_alloc();
    AVPacket* packet = av_packet_alloc();
    bool ok = stream && encoder && frame && packet;
    if (ok) {
        encoder->width = spec.width;
        encoder->height = spec.height;
        encoder->pix_fmt = AV_PIX_FMT_YUV420P;
        encoder->time_base = AVRational{1, spec.fps};
        encoder->framerate = AVRational{spec.fps, 1};
        encoder->bit_rate = 400000;
        if (format->oformat->flags & AVFMT_GLOBALHEADER) encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        ok = avcodec_open2(encoder, codec, nullptr) >= 0 &&
             avcodec_parameters_from_context(stream->codecpar, encoder) >= 0;
        stream->time_base = encoder->time_base;
        stream->avg_frame_rate = encoder->framerate;
    }
    if (ok && spec.rotation != 0) {
        auto* matrix = reinterpret_cast<int32_t*>(
            av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(int32_t)));
        ok = matrix != nullptr;
        if (ok) av_display_rotation_set(matrix, spec.rotation);
    }
    ok = ok && avio_open(&format->pb, path.c_str(), AVIO_FLAG_WRITE) >= 0 && avformat_write_header(format, nullptr) >= 0;
    frame->format = AV_PIX_FMT_YUV420P;
    frame->width = spec.width;
    frame->height = spec.height;
    ok = ok && av_frame_get_buffer(frame, 0) >= 0;
    auto drain = [&](AVFrame* input) {
        if (avcodec_send_frame(encoder, input) < 0) return false;
        while (avcodec_receive_packet(encoder, packet) >= 0) {
            av_packet_rescale_ts(packet, encoder->time_base, stream->time_base);
            packet->stream_index = stream->index;
            if (av_interleaved_write_frame(format, packet) < 0) return false;
        }
        return true;
    };
    for (int i = 0; ok && i < spec.frames; ++i) {
        ok = av_frame_make_writable(frame) >= 0;
        for (int y = 0; ok && y < spec.height; ++y)
            for (int x = 0; x < spec.width; ++x) frame->data[0][y * frame->linesize[0] + x] = (x + y + i * 3) & 0xFF;
        for (int plane = 1; ok && plane < 3; ++plane)
            for (int y = 0; y < spec.height / 2; ++y)
                for (int x = 0; x < spec.width / 2; ++x) frame->data[plane][y * frame->linesize[plane] + x] = 128;
        frame->pts = i;
        ok = ok && drain(frame);
    }
    ok = ok && drain(nullptr) && av_write_trailer(format) >= 0;
    if (format && format->pb) avio_closep(&format->pb);
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&encoder);
    avformat_free_context(format);
    return ok;
}

class AssetInfoTest : public ::testing::Test {
protected:
    std::string pathFor(const char* name) {
        std::string path = ::testing::TempDir() + "asset_info_" + std::to_string(getpid()) + "_" + name + ".mp4";
        paths_.push_back(path);
        return path;
    }
    void TearDown() override {
        for (const auto& path : paths_) std::remove(path.c_str());
    }
    std::vector<std::string> paths_;
};

}  // namespace

TEST_F(AssetInfoTest, MediaFactsOfAnEncodedClip) {
    const std::string path = pathFor("plain");
    ASSERT_TRUE(writeClip(path, ClipSpec{}));
    const AVCVSize size = AVCVAssetInfo::AVCVNaturalSize(path);
    EXPECT_EQ(size.width, 320);
    EXPECT_EQ(size.height, 240);
    EXPECT_NEAR(AVCVAssetInfo::AVCVFrameRate(path), 25.0, 0.01);
    EXPECT_NEAR(AVCVAssetInfo::AVCVDuration(path), 2.0, 0.05);
    EXPECT_NEAR(AVCVAssetInfo::AVCVVideoDuration(path), 2.0, 0.05);
    EXPECT_EQ(AVCVAssetInfo::AVCVAudioDuration(path), 0.0f);  // no audio track
    EXPECT_GT(AVCVAssetInfo::AVCVBitrate(path), 10000.0f);
    EXPECT_LT(AVCVAssetInfo::AVCVBitrate(path), 20000000.0f);
}

TEST_F(AssetInfoTest, QuarterTurnSwapsTheNaturalSize) {
    const std::string path = pathFor("rotated");
    ClipSpec spec;
    spec.width = 160;
    spec.height = 96;
    spec.fps = 30;
    spec.frames = 15;
    spec.rotation = 90;
    ASSERT_TRUE(writeClip(path, spec));
    const AVCVSize size = AVCVAssetInfo::AVCVNaturalSize(path);
    EXPECT_EQ(size.width, 96);
    EXPECT_EQ(size.height, 160);
    EXPECT_NEAR(AVCVAssetInfo::AVCVFrameRate(path), 30.0, 0.01);
    EXPECT_NEAR(AVCVAssetInfo::AVCVVideoDuration(path), 0.5, 0.05);
}

TEST_F(AssetInfoTest, UnreadableFileGivesZeros) {
    const std::string path = pathFor("garbage");
    FILE* file = std::fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    std::fputs("not a movie", file);
    std::fclose(file);
    for (const std::string& p : {path, std::string("/nonexistent/clip.mp4")}) {
        EXPECT_EQ(AVCVAssetInfo::AVCVNaturalSize(p).width, 0);
        EXPECT_EQ(AVCVAssetInfo::AVCVFrameRate(p), 0.0f);
        EXPECT_EQ(AVCVAssetInfo::AVCVDuration(p), 0.0f);
        EXPECT_EQ(AVCVAssetInfo::AVCVBitrate(p), 0.0f);
    }
}
