// Photos from the camera and the album: scaled to the screen's width, JPEG at the asked quality,
// upright, opaque; unreadable pictures left out.
#include <filesystem>

#include "media_test_support.h"

namespace quorvane {
namespace {

using platform::headless::HeadlessMediaPicker;
using testing::CaptureTest;
using testing::readPicture;
using testing::waitFor;
namespace fs = std::filesystem;

class CameraPhoto : public CaptureTest {
protected:
    Value take(const std::string& photo, int compressed) {
        picker->scriptPhoto(photo);
        return answer([&] { QuorvaneApiManager::getImageByCameraCompressed(compressed, screen, onSuccess(), onFail()); });
    }
};

TEST_F(CameraPhoto, LargePhotoIsScreenWideJpegAndCompressionShrinksIt) {
    std::string photo = sample("big.jpg", testing::makeJpeg(4000, 3000));
    Value plain = take(photo, 0), compressed = take(photo, 1), two = take(photo, 2);
    ASSERT_TRUE(plain.is_array() && compressed.is_array() && two.is_array());
    ASSERT_EQ(plain.size(), 1u);
    const Value& image = plain[0];
    std::vector<std::string> keys;
    for (auto it = image.begin(); it != image.end(); ++it) keys.push_back(it.key());
    EXPECT_EQ(keys, (std::vector<std::string>{"path", "size", "type", "width", "height"}));
    EXPECT_EQ(image["type"], "jpg");
    EXPECT_DOUBLE_EQ(image["width"].get<double>(), 375.0);
    EXPECT_DOUBLE_EQ(image["height"].get<double>(), 281.25);

    std::string path = image["path"];
    EXPECT_EQ(fs::path(path).parent_path(), fs::path(mediaDirectory()));
    EXPECT_EQ(fs::path(path).extension(), ".jpg");
    auto read = readPicture(path);
    ASSERT_TRUE(read.ok);
    EXPECT_EQ(read.width, 375);
    EXPECT_EQ(read.height, 282);
    EXPECT_EQ(image["size"].get<long long>(), static_cast<long long>(fs::file_size(path) / 1000));

    auto plainBytes = fs::file_size(path);
    auto compressedBytes = fs::file_size(compressed[0]["path"].get<std::string>());
    EXPECT_LT(compressedBytes, plainBytes);
    // Only exactly 1 compresses.
    EXPECT_EQ(fs::file_size(two[0]["path"].get<std::string>()), plainBytes);
    EXPECT_NE(two[0]["path"], image["path"]);

    ASSERT_EQ(picker->cameraSessions().size(), 3u);
    EXPECT_EQ(picker->cameraSessions()[0].sourceType, platform::SourceTypeCamera);
    EXPECT_FALSE(picker->cameraSessions()[0].allowsEditing);
    EXPECT_EQ(screen->dismissals(), 3);  // the camera took itself away each time
    EXPECT_FALSE(screen->presentedViewController());
}

TEST_F(CameraPhoto, SidewaysPhotoIsTurnedUpright) {
    // Stored 600 × 400, left red and right blue; orientation 6 shows it turned a quarter clockwise.
    Value result = take(sample("turned.jpg", testing::makeHalves(600, 400, {255, 0, 0}, {0, 0, 255}, ".jpg", 6)), 0);
    ASSERT_EQ(result.size(), 1u);
    EXPECT_DOUBLE_EQ(result[0]["height"].get<double>(), 562.5);
    std::string path = result[0]["path"];
    auto read = readPicture(path);
    EXPECT_EQ(read.width, 375);
    EXPECT_EQ(read.height, 563);
    EXPECT_GT(testing::pixelBand(path, 187, 40, 0), 200);   // red on top
    EXPECT_GT(testing::pixelBand(path, 187, 520, 2), 200);  // blue below
    EXPECT_LT(testing::pixelBand(path, 187, 520, 0), 60);
}

TEST_F(CameraPhoto, UnreadablePhotoIsLoggedAndLeftOut) {
    foundation::LogCapture log;
    for (const std::string& bytes : {std::string(), std::string("\xff\xd8\xff\xe0 not really a jpeg", 22)}) {
        Value result = take(sample("bad.jpg", bytes), 1);
        EXPECT_TRUE(result.is_array() && result.empty());
    }
    EXPECT_TRUE(log.contains("media: the picture cannot be read"));
    EXPECT_FALSE(fs::exists(mediaDirectory()) && !fs::is_empty(mediaDirectory()));
    EXPECT_TRUE(failures.empty());
}

class AlbumPhoto : public CaptureTest {
protected:
    Value pick(int compressed, int count, std::vector<HeadlessMediaPicker::AlbumStep> steps) {
        picker->scriptAlbum(std::move(steps));
        return answer([&] { QuorvaneApiManager::getImageByAlbumCompressed(compressed, count, screen, onSuccess(), onFail()); });
    }
    platform::MediaAsset image(const std::string& name, const std::string& bytes) {
        return picker->addAsset(sample(name, bytes), platform::AssetMediaType::Image);
    }
};

using Step = HeadlessMediaPicker::AlbumStep;

TEST_F(AlbumPhoto, SelectionOrderCountLimitAndSecondCompressionPass) {
    foundation::LogCapture log;
    auto wide = image("wide.jpg", testing::makeJpeg(1200, 600));
    auto tall = image("tall.jpg", testing::makeJpeg(600, 1200));
    auto third = image("third.jpg", testing::makeJpeg(800, 800));
    Value plain = pick(0, 2, {{Step::Select, tall}, {Step::Select, wide}, {Step::Select, third}, {Step::Finish}});
    ASSERT_EQ(plain.size(), 2u);  // the third selection is beyond the maximum
    EXPECT_DOUBLE_EQ(plain[0]["height"].get<double>(), 750.0);
    EXPECT_DOUBLE_EQ(plain[1]["height"].get<double>(), 187.5);
    EXPECT_TRUE(log.contains("选中"));

    auto shown = picker->lastAlbumPicker();
    ASSERT_TRUE(shown);
    EXPECT_EQ(shown->doneButtonTitle, "选择");
    EXPECT_EQ(shown->cancelButtonImage, "common_back");
    EXPECT_EQ(shown->settings.maxNumberOfSelections, 2);
    ASSERT_EQ(screen->huds().size(), 1u);
    EXPECT_TRUE(screen->huds()[0]->isHidden());

    Value compressed = pick(1, 2, {{Step::Select, tall}, {Step::Select, wide}, {Step::Deselect, tall}, {Step::Finish}});
    ASSERT_EQ(compressed.size(), 1u);
    EXPECT_TRUE(log.contains("取消选中"));
    EXPECT_LT(fs::file_size(compressed[0]["path"].get<std::string>()), fs::file_size(plain[1]["path"].get<std::string>()));
    EXPECT_EQ(readPicture(compressed[0]["path"]).width, 375);
}

TEST_F(AlbumPhoto, TransparentPngBecomesOpaqueJpegAndBrokenFilesAreLeftOut) {
    foundation::LogCapture log;
    auto png = image("alpha.png", testing::makeHalves(750, 500, {255, 255, 255, 0}, {255, 255, 255, 255}, ".png"));
    auto empty = image("empty.jpg", "");
    auto corrupt = image("corrupt.png", std::string("\x89PNG\r\n\x1a\n garbage garbage", 24));
    auto missing = picker->addAsset(temp.path() + "/gone.jpg", platform::AssetMediaType::Image);
    Value result = pick(0, 9, {{Step::Select, empty}, {Step::Select, png}, {Step::Select, corrupt},
                               {Step::Select, missing}, {Step::Finish}});
    ASSERT_EQ(result.size(), 1u);
    std::string path = result[0]["path"];
    auto read = readPicture(path);
    EXPECT_EQ(read.bands, 3);
    EXPECT_EQ(read.width, 375);
    EXPECT_EQ(read.height, 250);
    EXPECT_LT(testing::pixelBand(path, 40, 125, 0), 30);    // transparent became black
    EXPECT_GT(testing::pixelBand(path, 330, 125, 0), 225);  // opaque white stayed white
    EXPECT_TRUE(log.contains("media: the picture cannot be read"));
}

}  // namespace
}  // namespace quorvane
