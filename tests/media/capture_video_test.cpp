// Videos from the camera and the album: the dictionary's facts, the camera's time limit, export
// presets, refusal of clips over the limit, failed exports, cancel and refused permissions.
#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "api/media/VideoAsset.h"
#include "media_test_support.h"

namespace quorvane {
namespace {

using platform::headless::HeadlessMediaPicker;
using testing::CaptureTest;
using testing::waitFor;
using Step = HeadlessMediaPicker::AlbumStep;
namespace fs = std::filesystem;

std::string kilobytes(const std::string& path) {
    char text[32];
    std::snprintf(text, sizeof text, "%.0f", static_cast<double>(fs::file_size(path)) / 1000.0);
    return text;
}

class CameraVideo : public CaptureTest {
protected:
    Value record(int compressed, int maxDuration) {
        return answer([&] { QuorvaneApiManager::getVideoByCameraCompressed(compressed, maxDuration, screen, onSuccess(), onFail()); });
    }
};

// A portrait recording reports its upright size; compression asks the camera for medium quality.
TEST_F(CameraVideo, RecordingIsMovedUnderMediaWithItsFacts) {
    // 102 frames at 10 per second: 10.2 seconds, reported as 11.
    picker->scriptMovie(sampleMp4("clip.mp4", 64, 48, 10, 102), 10.2);
    Value result = record(0, 30);
    ASSERT_EQ(result.size(), 1u);
    const Value video = result[0];
    std::vector<std::string> keys;
    for (auto it = video.begin(); it != video.end(); ++it) keys.push_back(it.key());
    EXPECT_EQ(keys, (std::vector<std::string>{"path", "size", "duration", "type", "width", "height"}));
    std::string path = video["path"];
    EXPECT_EQ(fs::path(path).parent_path(), fs::path(mediaDirectory()));
    EXPECT_EQ(fs::path(path).extension(), ".mp4");
    EXPECT_EQ(video["duration"], 11);
    EXPECT_EQ(video["size"], kilobytes(path));
    EXPECT_EQ(video["type"], "mp4");
    EXPECT_DOUBLE_EQ(video["width"].get<double>(), 64);
    EXPECT_DOUBLE_EQ(video["height"].get<double>(), 48);
    // The camera's own file is gone: the copy under "media" is the only one.
    for (const auto& entry : fs::directory_iterator(foundation::temporaryDirectory()))
        EXPECT_FALSE(entry.path().filename().string().starts_with("capture-")) << entry.path();

    auto settings = picker->cameraSessions().at(0);
    EXPECT_EQ(settings.mediaTypes, std::vector<std::string>{platform::kUTTypeMovie});
    EXPECT_EQ(settings.cameraDevice, platform::CameraDeviceRear);
    EXPECT_EQ(settings.videoMaximumDuration, 30);
    EXPECT_EQ(settings.videoQuality, platform::QualityTypeHigh);

    picker->scriptMovie(sampleMp4("portrait.mp4", 64, 48, 10, 20, 90), 2);
    result = record(1, 30);
    ASSERT_EQ(result.size(), 1u);
    EXPECT_DOUBLE_EQ(result[0]["width"].get<double>(), 48);
    EXPECT_DOUBLE_EQ(result[0]["height"].get<double>(), 64);
    EXPECT_EQ(result[0]["duration"], 2);
    EXPECT_EQ(picker->cameraSessions().at(1).videoQuality, platform::QualityTypeMedium);
}

TEST_F(CameraVideo, RecordingStopsAtTheLimit) {
    picker->setMovieTrimmer([](const std::string& in, const std::string& out, double seconds) {
        return media::exportVideo(in, out, media::ExportPreset::Passthrough, seconds).status ==
               media::ExportSessionStatusCompleted;
    });
    picker->scriptMovie(sampleMp4("long.mp4", 64, 48, 10, 102), 10.2);
    Value result = record(0, 3);
    ASSERT_EQ(result.size(), 1u);
    EXPECT_EQ(result[0]["duration"], 3);
}

TEST_F(CameraVideo, UnreadableRecordingIsLoggedAndLeftOut) {
    foundation::LogCapture log;
    picker->scriptMovie(sample("broken.mp4", "not a movie at all"), 1);
    Value result = record(0, 10);
    EXPECT_TRUE(result.is_array() && result.empty());
    EXPECT_TRUE(log.contains("media: the recording cannot be read"));
    EXPECT_TRUE(fs::is_empty(mediaDirectory()));
    EXPECT_TRUE(failures.empty());
}

class AlbumVideo : public CaptureTest {
protected:
    platform::MediaAsset video(const std::string& path, double seconds) {
        return picker->addAsset(path, platform::AssetMediaType::Video, seconds);
    }
    void pick(int compressed, int count, int maxDuration, std::vector<Step> steps) {
        picker->scriptAlbum(std::move(steps));
        QuorvaneApiManager::getVideoByAlbumCompressed(compressed, count, maxDuration, screen, onSuccess(), onFail());
    }
    bool spinnerGone() const {
        auto huds = screen->huds();
        return !huds.empty() && huds.back()->isRemoved();
    }
};

TEST_F(AlbumVideo, PresetsDecideSizeAndQuality) {
    auto clip = video(sampleMp4("wide.mp4", 640, 360, 10, 30), 3);
    pick(0, 2, 60, {{Step::Select, clip}, {Step::Finish}});
    ASSERT_TRUE(waitFor([&] { return successes.size() == 1; }));
    pick(1, 2, 60, {{Step::Select, clip}, {Step::Finish}});
    ASSERT_TRUE(waitFor([&] { return successes.size() == 2; }));

    const Value& highest = successes[0][0];
    const Value& medium = successes[1][0];
    EXPECT_DOUBLE_EQ(highest["width"].get<double>(), 640);
    EXPECT_DOUBLE_EQ(highest["height"].get<double>(), 360);
    EXPECT_DOUBLE_EQ(medium["width"].get<double>(), 568);
    EXPECT_DOUBLE_EQ(medium["height"].get<double>(), 318);
    EXPECT_EQ(highest["duration"], 3);
    EXPECT_EQ(medium["duration"], 3);
    EXPECT_LT(fs::file_size(medium["path"].get<std::string>()), fs::file_size(highest["path"].get<std::string>()));
    EXPECT_EQ(medium["size"], kilobytes(medium["path"]));

    auto huds = screen->huds();
    ASSERT_EQ(huds.size(), 2u);
    EXPECT_EQ(huds[0]->detailsText(), "视频压缩...");
    EXPECT_EQ(huds[0]->mode(), platform::Hud::Indeterminate);
    EXPECT_TRUE(huds[0]->isRemoved());
    EXPECT_EQ(picker->lastAlbumPicker()->doneButtonTitle, "确定");
}

TEST_F(AlbumVideo, ClipOverTheLimitIsDeselectedWithAHud) {
    auto tooLong = video(sampleMp4("long.mp4", 64, 48, 10, 20), 61);
    auto portrait = video(sampleMp4("portrait.mp4", 64, 48, 10, 20, -90), 2);
    auto image = picker->addAsset(sample("still.jpg", testing::makeJpeg(50, 50)), platform::AssetMediaType::Image);
    pick(0, 3, 60, {{Step::Select, tooLong}, {Step::Select, image}, {Step::Select, portrait}, {Step::Finish}});
    ASSERT_TRUE(waitFor([&] { return answered(); }));
    ASSERT_EQ(successes.size(), 1u);
    ASSERT_EQ(successes[0].size(), 1u);  // neither the long clip nor the picture
    EXPECT_DOUBLE_EQ(successes[0][0]["width"].get<double>(), 48);
    EXPECT_DOUBLE_EQ(successes[0][0]["height"].get<double>(), 64);

    auto huds = picker->lastAlbumPicker()->huds();
    ASSERT_EQ(huds.size(), 1u);
    EXPECT_EQ(huds[0]->detailsText(), "视频不应超过 60 秒");
    EXPECT_EQ(huds[0]->mode(), platform::Hud::Text);
}

TEST_F(AlbumVideo, FailedExportsAreLoggedAndLeftOut) {
    foundation::LogCapture log;
    auto broken = video(sample("broken.mp4", std::string(4096, '\x42')), 2);
    auto missing = video(temp.path() + "/gone.mp4", 2);
    auto good = video(sampleMp4("good.mp4", 64, 48, 10, 10), 1);
    pick(0, 3, 60, {{Step::Select, broken}, {Step::Select, missing}, {Step::Select, good}, {Step::Finish}});
    ASSERT_TRUE(waitFor([&] { return answered(); }));
    ASSERT_EQ(successes[0].size(), 1u);
    EXPECT_TRUE(log.contains("AVAssetExportSessionStatusFailed: "));
    auto lines = log.lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "4"), 1);  // the broken file; the missing one is never exported
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "3"), 1);

    // Every export failing: the spinner goes, and no callback comes.
    successes.clear();
    pick(1, 3, 60, {{Step::Select, broken}, {Step::Finish}});
    ASSERT_TRUE(waitFor([&] { return spinnerGone(); }));
    testing::settle();
    EXPECT_TRUE(successes.empty());
    EXPECT_TRUE(failures.empty());
}

TEST(VideoFacts, EmptyAndCorruptFilesHaveNone) {
    foundation::ScopedTempDir dir;
    std::string empty = dir.path() + "/empty.mp4", corrupt = dir.path() + "/corrupt.mp4";
    std::ofstream(empty).close();
    std::ofstream(corrupt) << std::string(1000, '\x07');
    EXPECT_FALSE(media::readVideoFacts(empty));
    EXPECT_FALSE(media::readVideoFacts(corrupt));
    EXPECT_FALSE(media::videoDictionary(dir.path() + "/absent.mp4"));
    EXPECT_EQ(media::exportVideo(empty, dir.path() + "/out.mp4", media::ExportPreset::HighestQuality).status,
              media::ExportSessionStatusFailed);
    EXPECT_FALSE(fs::exists(dir.path() + "/out.mp4"));
}

}  // namespace
}  // namespace quorvane
