// The recording overlay and the façade's voice note: the overlay's layout, the countdown decides the
// reported seconds, the answer's four keys, the three-second rule, interruptions, the microphone gate.
#include <filesystem>

#include "api/QuorvaneApiManager.h"
#include "audio_test_support.h"
#include "device/AudioRecordMaskView.h"
#include "device/QrScanStyle.h"
#include "foundation/temp_files.h"
#include "platform/headless/headless_presenter.h"

namespace quorvane {
namespace {

using testing::decodeAudioFile;

struct Stop {
    std::string path;
    std::int32_t seconds;
};

class AudioRecordMaskViewTest : public testing::AudioTest {
protected:
    std::shared_ptr<AudioRecordMaskView> show(std::int32_t limit) {
        auto view = AudioRecordMaskView::initWithAudioRecordMaxTimeLimit(
            limit, [this](const std::string& path, std::int32_t seconds) { stops.push_back({path, seconds}); });
        window->addSubview(view);
        return view;
    }
    std::shared_ptr<platform::Window> window = std::make_shared<platform::Window>();
    std::vector<Stop> stops;
};

TEST_F(AudioRecordMaskViewTest, CountdownEndsTheRecordingAtTheLimit) {
    auto view = show(10);
    EXPECT_EQ(view->audioRecordTool()->maxRecordSecond(), 20);
    microphone->advance(0);
    EXPECT_EQ(view->durationLab()->text(), "10");
    microphone->advance(3.5);
    EXPECT_EQ(view->durationLab()->text(), "7");
    EXPECT_TRUE(stops.empty());
    microphone->advance(10);  // the host keeps talking past the limit

    ASSERT_EQ(stops.size(), 1u);
    EXPECT_EQ(stops[0].seconds, 10);
    EXPECT_EQ(view->durationLab()->text(), "0");
    EXPECT_EQ(view->superview(), nullptr);
    EXPECT_EQ(microphone->liveTimers(), 0);
    std::filesystem::path path = stops[0].path;
    EXPECT_EQ(path.parent_path(), mediaDirectory());
    EXPECT_EQ(path.extension(), ".acc");
    auto audio = decodeAudioFile(path);
    ASSERT_TRUE(audio.opened);
    EXPECT_EQ(audio.container, "wav");
    EXPECT_EQ(audio.codec, "pcm_s16le");
    EXPECT_EQ(audio.sampleRate, 8000);
    EXPECT_EQ(audio.channels, 2);
    EXPECT_NEAR(audio.seconds(), 10.0, 0.01);
}

TEST_F(AudioRecordMaskViewTest, StopButtonReportsWholeSecondsElapsedAndAFailedStartReportsNothing) {
    auto view = show(10);
    microphone->advance(2.5);
    EXPECT_EQ(view->stopButton()->title(), "结束录音");
    view->stopButton()->tap();
    ASSERT_EQ(stops.size(), 1u);
    EXPECT_EQ(stops[0].seconds, 2);
    EXPECT_EQ(view->superview(), nullptr);
    EXPECT_NEAR(decodeAudioFile(stops[0].path).seconds(), 2.5, 0.01);

    microphone->setUnavailable(true);
    auto failed = show(5);
    microphone->advance(20);  // neither countdown reaching zero reports anything more
    EXPECT_EQ(stops.size(), 1u);
    EXPECT_EQ(failed->superview(), nullptr);  // the countdown still removes it
}

// The layout comes from the bundle's interface file (the other cases use its outlets); without the
// file the overlay is bare, says which file is missing, and the recording still ends with the countdown.
TEST_F(AudioRecordMaskViewTest, AMissingInterfaceFileLeavesABareOverlay) {
    foundation::ScopedTempDir empty;
    setScanResourceDirectory(empty.path());
    std::shared_ptr<void> restore(nullptr, [](void*) { setScanResourceDirectory(std::nullopt); });
    foundation::LogCapture log;
    auto bare = show(3);
    EXPECT_TRUE(log.contains("Could not load the interface file QuorvaneApiSDKImage.bundle/AudioRecordMaskView"));
    EXPECT_TRUE(bare->subviews().empty());
    EXPECT_FALSE(bare->durationLab());
    EXPECT_FALSE(bare->stopButton());
    microphone->advance(4);
    ASSERT_EQ(stops.size(), 1u);
    EXPECT_EQ(stops[0].seconds, 3);
}

class VoiceNoteTest : public testing::AudioTest {
protected:
    void SetUp() override {
        AudioTest::SetUp();
        platform::Window::setKeyWindow(std::make_shared<platform::Window>());
    }
    void startRecording(int limit) {
        QuorvaneApiManager::startAudioRecord(
            limit, controller, [this](const Value& result) { results.push_back(result); },
            [this](const Value& failure) { failures.push_back(failure); });
    }
    // Grants the microphone and waits for the overlay on the key window.
    std::shared_ptr<AudioRecordMaskView> startGranted(int limit) {
        privacy.authority->setRecordPermission(platform::kRecordPermissionGranted);
        startRecording(limit);
        std::shared_ptr<AudioRecordMaskView> overlay;
        testing::waitFor([&] {
            for (const auto& view : platform::Window::keyWindow()->subviews())
                if (auto found = std::dynamic_pointer_cast<AudioRecordMaskView>(view)) overlay = found;
            return overlay != nullptr;
        });
        return overlay;
    }
    std::shared_ptr<platform::headless::HeadlessPresenter> controller = platform::headless::HeadlessPresenter::create();
    std::vector<Value> results, failures;
};

TEST_F(VoiceNoteTest, LongEnoughRecordingAnswersWithFourKeysAndAnMp3Copy) {
    auto overlay = startGranted(5);
    ASSERT_NE(overlay, nullptr);
    microphone->advance(7);
    ASSERT_EQ(results.size(), 1u);
    EXPECT_TRUE(failures.empty());
    const Value& result = results[0];
    std::vector<std::string> keys;
    for (const auto& item : result.items()) keys.push_back(item.key());
    EXPECT_EQ(keys, (std::vector<std::string>{"size", "duration", "path", "timestamp"}));
    EXPECT_EQ(result["duration"], "5");

    std::string path = result["path"];
    EXPECT_EQ(std::filesystem::path(path).parent_path(), mediaDirectory());
    EXPECT_EQ(std::filesystem::path(path).extension(), ".mp3");
    auto bytes = std::filesystem::file_size(path);
    char size[32];
    std::snprintf(size, sizeof size, "%.0f", static_cast<double>(bytes) / 1000.0);
    EXPECT_EQ(result["size"], size);
    EXPECT_FALSE(std::string(result["timestamp"]).empty());
    // The copy holds the recording as made (linear PCM); the original ".acc" file is gone.
    EXPECT_NEAR(decodeAudioFile(path).seconds(), 5.0, 0.01);
    for (const auto& entry : std::filesystem::directory_iterator(mediaDirectory()))
        EXPECT_NE(entry.path().extension(), ".acc");
    EXPECT_TRUE(controller->huds().empty());
}

// Under three seconds only a notice shows; a recording after it, interrupted, answers with the
// countdown's seconds while the file leaves the interruption out.
TEST_F(VoiceNoteTest, UnderThreeSecondsShowsTheNoticeAndAnInterruptedOneAnswersTheCountdown) {
    auto overlay = startGranted(10);
    ASSERT_NE(overlay, nullptr);
    microphone->advance(2.5);
    overlay->stopButton()->tap();
    EXPECT_TRUE(results.empty());
    EXPECT_TRUE(failures.empty());
    auto huds = controller->huds();
    ASSERT_EQ(huds.size(), 1u);
    EXPECT_EQ(huds[0]->detailsText(), "说话时间太短");
    EXPECT_EQ(huds[0]->mode(), platform::Hud::Text);

    ASSERT_NE(startGranted(10), nullptr);
    microphone->advance(3);
    session->interrupt(1);
    microphone->advance(2);
    session->interrupt(0);
    microphone->advance(6);
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0]["duration"], "10");
    EXPECT_NEAR(decodeAudioFile(results[0]["path"]).seconds(), 8.0, 0.01);
}

TEST_F(VoiceNoteTest, RefusedMicrophoneIsSilentAtThePromptThenFails) {
    privacy.authority->scriptRecordAnswer(false);
    startRecording(10);
    ASSERT_TRUE(testing::waitFor([&] { return privacy.authority->recordPrompts() == 1; }));
    foundation::MainLoop::instance().runUntil([] { return false; }, std::chrono::milliseconds(150));
    EXPECT_TRUE(failures.empty());

    startRecording(10);
    ASSERT_TRUE(testing::waitFor([&] { return !failures.empty(); }));
    EXPECT_EQ(failures, (std::vector<Value>{"NoMicrophonePermission"}));
    EXPECT_TRUE(results.empty());
    EXPECT_TRUE(platform::Window::keyWindow()->subviews().empty());
}

}  // namespace
}  // namespace quorvane
