// What every capture operation shares: nothing at all without a controller to present from,
// nothing of the controller once a picker has finished, the same answers to cancel and refusal;
// and which track a movie is measured by.
extern "C" {
#include <libavformat/avformat.h>
}

#include <memory>

#include "api/media/VideoAsset.h"
#include "media_test_support.h"

namespace quorvane {
namespace {

using platform::headless::HeadlessMediaPicker;
using testing::CaptureTest;
using testing::waitFor;
using Step = HeadlessMediaPicker::AlbumStep;

using Input = std::unique_ptr<AVFormatContext, decltype([](AVFormatContext* f) { avformat_close_input(&f); })>;

Input openInput(const std::string& path) {
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0) return nullptr;
    Input input(raw);
    return avformat_find_stream_info(raw, nullptr) < 0 ? nullptr : std::move(input);
}

// Muxes `first` and `second` into one MP4 at `path`, in that order. Only the second track is marked
// as the default one, so a reader that looks for the "best" track picks it, not the first.
bool writeTwoTrackClip(const std::string& path, const test::ClipSpec& first, const test::ClipSpec& second) {
    AVFormatContext* raw = nullptr;
    if (avformat_alloc_output_context2(&raw, nullptr, "mp4", path.c_str()) < 0) return false;
    std::unique_ptr<AVFormatContext, decltype([](AVFormatContext* f) {
                        if (f->pb) avio_closep(&f->pb);
                        avformat_free_context(f);
                    })>
        output(raw);
    Input inputs[2];
    const test::ClipSpec* specs[] = {&first, &second};
    for (int i = 0; i < 2; ++i) {
        const std::string part = path + ".part" + std::to_string(i) + ".mp4";
        if (!test::writeClip(part, *specs[i]) || !(inputs[i] = openInput(part))) return false;
        AVStream* stream = avformat_new_stream(raw, nullptr);
        if (!stream || avcodec_parameters_copy(stream->codecpar, inputs[i]->streams[0]->codecpar) < 0) return false;
        stream->codecpar->codec_tag = 0;
        stream->time_base = inputs[i]->streams[0]->time_base;
        stream->disposition = i == 1 ? AV_DISPOSITION_DEFAULT : 0;
    }
    if (avio_open(&raw->pb, path.c_str(), AVIO_FLAG_WRITE) < 0 || avformat_write_header(raw, nullptr) < 0) return false;
    AVPacket* packet = av_packet_alloc();
    bool ok = packet != nullptr;
    for (int i = 0; ok && i < 2; ++i)
        while (ok && av_read_frame(inputs[i].get(), packet) >= 0) {
            av_packet_rescale_ts(packet, inputs[i]->streams[0]->time_base, raw->streams[i]->time_base);
            packet->stream_index = i;
            packet->pos = -1;
            ok = av_interleaved_write_frame(raw, packet) >= 0;
            av_packet_unref(packet);
        }
    av_packet_free(&packet);
    return ok && av_write_trailer(raw) >= 0;
}

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

// Cancel answers "Cancel" and takes the picker away; a refused permission answers its own word
// and opens no camera; and no picker, finished either way, keeps the controller alive.
TEST_F(CaptureOwnership, EveryPickerAnswersCancelAndRefusalAndLetsTheControllerGo) {
    auto one = picker->addAsset(sample("one.jpg", testing::makeJpeg(100, 100)), platform::AssetMediaType::Image);
    auto clip = picker->addAsset(sampleMp4("clip.mp4", 64, 48, 10, 10), platform::AssetMediaType::Video, 1);
    picker->scriptAlbum({{Step::Select, one}, {Step::Finish}});
    QuorvaneApiManager::getImageByAlbumCompressed(0, 1, screen, onSuccess(), onFail());
    ASSERT_TRUE(waitFor([&] { return successes.size() == 1; }));
    picker->scriptAlbum({{Step::Select, clip}, {Step::Finish}});
    QuorvaneApiManager::getVideoByAlbumCompressed(0, 1, 60, screen, onSuccess(), onFail());
    ASSERT_TRUE(waitFor([&] { return successes.size() == 2; }));

    struct Case {
        const char* name;
        platform::PrivacyKind kind;
        const char* refusal;
        std::function<void()> scriptCancel, call;
    };
    const Case cases[] = {
        {"camera photo", platform::PrivacyKind::Camera, "NoCameraPermission", [&] { picker->scriptCameraCancel(); },
         [&] { QuorvaneApiManager::getImageByCameraCompressed(0, screen, onSuccess(), onFail()); }},
        {"album photo", platform::PrivacyKind::Photos, "NoAlbumPermission",
         [&] { picker->scriptAlbum({{Step::Select, one}, {Step::Cancel}}); },
         [&] { QuorvaneApiManager::getImageByAlbumCompressed(0, 3, screen, onSuccess(), onFail()); }},
        {"camera video", platform::PrivacyKind::Camera, "NoCameraPermission", [&] { picker->scriptCameraCancel(); },
         [&] { QuorvaneApiManager::getVideoByCameraCompressed(0, 10, screen, onSuccess(), onFail()); }},
        {"album video", platform::PrivacyKind::Photos, "NoAlbumPermission", [&] { picker->scriptAlbum({{Step::Cancel}}); },
         [&] { QuorvaneApiManager::getVideoByAlbumCompressed(0, 1, 60, screen, onSuccess(), onFail()); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        failures.clear();
        privacy.authority->setStatus(c.kind, platform::StatusAuthorized);
        const int dismissals = screen->dismissals();
        c.scriptCancel();
        c.call();
        ASSERT_TRUE(waitFor([&] { return !failures.empty(); }));
        EXPECT_FALSE(screen->presentedViewController());
        EXPECT_EQ(screen->dismissals(), dismissals + 1);
        const auto sessions = picker->cameraSessions().size();
        privacy.authority->setStatus(c.kind, platform::StatusDenied);
        c.call();
        ASSERT_TRUE(waitFor([&] { return failures.size() == 2; }));
        EXPECT_EQ(failures, (std::vector<Value>{"Cancel", c.refusal}));
        EXPECT_EQ(picker->cameraSessions().size(), sessions);
    }
    EXPECT_EQ(successes.size(), 2u);

    // A camera that is not there: nothing at all happens.
    privacy.authority->setStatus(platform::PrivacyKind::Camera, platform::StatusAuthorized);
    picker->setCameraAvailable(false);
    const auto shown = screen->history().size();
    QuorvaneApiManager::getImageByCameraCompressed(0, screen, onSuccess(), onFail());
    testing::settle();
    EXPECT_EQ(failures.size(), 2u);
    EXPECT_EQ(screen->history().size(), shown);

    testing::settle();
    std::weak_ptr<platform::headless::HeadlessPresenter> gone = screen;
    screen.reset();
    EXPECT_TRUE(gone.expired());
}

TEST_F(CaptureOwnership, MovieIsMeasuredByItsFirstVideoTrack) {
    std::string path = temp.path() + "/two-tracks.mp4";
    ASSERT_TRUE(writeTwoTrackClip(
        path, test::ClipSpec{.width = 64, .height = 48, .fps = 10, .frames = 10, .picture = test::ClipPicture::Gradient},
        test::ClipSpec{.width = 320, .height = 240, .fps = 10, .frames = 10, .rotation = 90}));
    {
        // The file is what it should be: a "best track" reader would pick the second one.
        auto input = openInput(path);
        ASSERT_TRUE(input);
        EXPECT_EQ(input->nb_streams, 2u);
        EXPECT_EQ(av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0), 1);
    }
    auto facts = media::readVideoFacts(path);
    ASSERT_TRUE(facts);
    EXPECT_FLOAT_EQ(facts->width, 64);
    EXPECT_FLOAT_EQ(facts->height, 48);
}

}  // namespace
}  // namespace quorvane
