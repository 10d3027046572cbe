// What the capture operations hold on to: nothing at all without a controller to present from,
// and nothing of the controller once a picker has finished; and which track a movie is measured by.
extern "C" {
#include <libavformat/avformat.h>
}

#include "api/media/VideoAsset.h"
#include "media_test_support.h"
#include "two_track_clip.h"

namespace quorvane {
namespace {

using platform::headless::HeadlessMediaPicker;
using testing::CaptureTest;
using testing::waitFor;
using Step = HeadlessMediaPicker::AlbumStep;

using CaptureOwnership = CaptureTest;

TEST_F(CaptureOwnership, WithoutAControllerNothingIsShownOrAnswered) {
    picker->scriptMovie(sampleMp4("clip.mp4", 64, 48, 10, 10), 1);
    auto still = picker->addAsset(sample("still.jpg", testing::makeJpeg(100, 100)), platform::AssetMediaType::Image);
    picker->scriptAlbum({{Step::Select, still}, {Step::Finish}});
    QuorvaneApiManager::getImageByCameraCompressed(0, nullptr, onSuccess(), onFail());
    QuorvaneApiManager::getImageByAlbumCompressed(0, 1, nullptr, onSuccess(), onFail());
    QuorvaneApiManager::getVideoByCameraCompressed(0, 10, nullptr, onSuccess(), onFail());
    QuorvaneApiManager::getVideoByAlbumCompressed(0, 1, 60, nullptr, onSuccess(), onFail());
    testing::settle();
    EXPECT_FALSE(answered());
    EXPECT_TRUE(picker->cameraSessions().empty());
    EXPECT_FALSE(picker->lastAlbumPicker());

    // A refusal is still reported: it needs no screen.
    privacy.authority->setStatus(platform::PrivacyKind::Camera, platform::StatusDenied);
    QuorvaneApiManager::getImageByCameraCompressed(0, nullptr, onSuccess(), onFail());
    ASSERT_TRUE(waitFor([&] { return answered(); }));
    EXPECT_EQ(failures, std::vector<Value>{"NoCameraPermission"});
}

TEST_F(CaptureOwnership, FinishedPickersDoNotKeepTheControllerAlive) {
    auto still = picker->addAsset(sample("still.jpg", testing::makeJpeg(100, 100)), platform::AssetMediaType::Image);
    auto clip = picker->addAsset(sampleMp4("clip.mp4", 64, 48, 10, 10), platform::AssetMediaType::Video, 1);
    picker->scriptAlbum({{Step::Select, still}, {Step::Finish}});
    QuorvaneApiManager::getImageByAlbumCompressed(0, 1, screen, onSuccess(), onFail());
    ASSERT_TRUE(waitFor([&] { return successes.size() == 1; }));
    picker->scriptAlbum({{Step::Select, clip}, {Step::Finish}});
    QuorvaneApiManager::getVideoByAlbumCompressed(0, 1, 60, screen, onSuccess(), onFail());
    ASSERT_TRUE(waitFor([&] { return successes.size() == 2; }));
    picker->scriptAlbum({{Step::Cancel}});
    QuorvaneApiManager::getImageByAlbumCompressed(0, 1, screen, onSuccess(), onFail());
    ASSERT_TRUE(waitFor([&] { return failures.size() == 1; }));
    testing::settle();

    std::weak_ptr<platform::headless::HeadlessPresenter> gone = screen;
    screen.reset();
    EXPECT_TRUE(gone.expired());
}

TEST_F(CaptureOwnership, MovieIsMeasuredByItsFirstVideoTrack) {
    std::string path = temp.path() + "/two-tracks.mp4";
    ASSERT_TRUE(testing::writeTwoTrackClip(
        path, test::ClipSpec{.width = 64, .height = 48, .fps = 10, .frames = 10, .picture = test::ClipPicture::Gradient},
        test::ClipSpec{.width = 320, .height = 240, .fps = 10, .frames = 10, .rotation = 90}));
    {
        // The file is what it should be: a "best track" reader would pick the second one.
        AVFormatContext* input = nullptr;
        ASSERT_GE(avformat_open_input(&input, path.c_str(), nullptr, nullptr), 0);
        ASSERT_GE(avformat_find_stream_info(input, nullptr), 0);
        EXPECT_EQ(input->nb_streams, 2u);
        EXPECT_EQ(av_find_best_stream(input, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0), 1);
        avformat_close_input(&input);
    }
    auto facts = media::readVideoFacts(path);
    ASSERT_TRUE(facts);
    EXPECT_FLOAT_EQ(facts->width, 64);
    EXPECT_FLOAT_EQ(facts->height, 48);
}

}  // namespace
}  // namespace quorvane
