#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <string>

#include "VODUpload/src/AVCVAssetInfo.h"
#include "support/media_files.h"

using namespace quorvane;

namespace {

using test::ClipSpec;
using test::writeClip;

// Two seconds of a moving ramp at a modest bit rate: the probe's facts are known exactly.
ClipSpec plainClip() {
    return ClipSpec{.frames = 50, .bitRate = 400000, .picture = test::ClipPicture::Gradient};
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
    ASSERT_TRUE(writeClip(path, plainClip()));
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
    ClipSpec spec = plainClip();
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
