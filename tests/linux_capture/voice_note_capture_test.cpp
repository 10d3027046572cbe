// Voice notes from the Linux microphone on the real-time clock, fed by lavfi: what is recorded is
// the tone for as long as it was spoken; the countdown, the limit watch and the three-second rule
// run on wall time; an input that ends, cannot be opened or is busy ends in the failure path once.
#include <filesystem>

#include "api/QuorvaneApiManager.h"
#include "capture_test_support.h"
#include "device/AudioRecordMaskView.h"

namespace quorvane {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr const char* kTone = "lavfi:sine=frequency=440:sample_rate=44100";

struct Event {
    std::string name, data;
    bool operator==(const Event&) const = default;
};

class VoiceNoteCaptureTest : public testing::LinuxCaptureTest {
protected:
    std::shared_ptr<AudioRecordMaskView> overlay() const {
        for (const auto& view : platform::Window::keyWindow()->subviews())
            if (auto found = std::dynamic_pointer_cast<AudioRecordMaskView>(view)) return found;
        return nullptr;
    }
    std::shared_ptr<AudioRecordMaskView> startRecording(int limit) {
        QuorvaneApiManager::startAudioRecord(limit, host, outcomes.success(), outcomes.fail());
        testing::waitFor([&] { return overlay() != nullptr || !outcomes.calls.empty(); });
        return overlay();
    }
    std::shared_ptr<AudioRecordTool> startTool(const std::string& duration) {
        auto tool = std::make_shared<AudioRecordTool>();
        tool->audioRecordStartWithParam({{"duration", duration}, {"format", "acc"}, {"sampleRate", "8000"}},
                                        [this](const std::string& name, const std::string& data) {
                                            events.push_back({name, data});
                                        });
        return tool;
    }
    std::vector<Event> events;
};

TEST_F(VoiceNoteCaptureTest, OverlayRecordsTheToneForAsLongAsItWasSpoken) {
    install(kTone);
    std::vector<std::pair<std::string, std::int32_t>> stops;
    auto view = AudioRecordMaskView::initWithAudioRecordMaxTimeLimit(
        10, [&](const std::string& path, std::int32_t seconds) { stops.emplace_back(path, seconds); });
    platform::Window::keyWindow()->addSubview(view);
    auto started = Clock::now();
    testing::runFor(2400ms);  // ticks at 0, 1 and 2 seconds
    EXPECT_EQ(view->durationLab()->text(), "8");
    view->stopButton()->tap();
    double spoken = std::chrono::duration<double>(Clock::now() - started).count();

    ASSERT_EQ(stops.size(), 1u);
    EXPECT_EQ(stops[0].second, 2);
    EXPECT_EQ(std::filesystem::path(stops[0].first).extension(), ".acc");
    auto sound = testing::decodeSound(stops[0].first);
    ASSERT_TRUE(sound.opened);
    EXPECT_EQ(sound.sampleRate, 8000);
    EXPECT_NEAR(sound.seconds(), spoken, 0.3);
    EXPECT_NEAR(sound.frequency(), 440, 5);
}

TEST_F(VoiceNoteCaptureTest, OneSecondIsTooShortForTheFacade) {
    install(kTone);
    auto view = startRecording(10);
    ASSERT_NE(view, nullptr);
    testing::runFor(1200ms);
    view->stopButton()->tap();
    testing::runFor(100ms);
    EXPECT_TRUE(outcomes.calls.empty());
    auto huds = host->recorder()->huds();
    ASSERT_EQ(huds.size(), 1u);
    EXPECT_EQ(huds[0]->detailsText(), "说话时间太短");

    // The dropped recording gave the microphone back, though its overlay is still held: the next
    // note records.
    auto again = startRecording(10);
    EXPECT_NE(again, nullptr);
    EXPECT_TRUE(outcomes.calls.empty());
    if (again) again->stopButton()->tap();
}

// The microphone serves one capture: a second request while one records is refused at its
// permission check, and the first one runs to its limit undisturbed.
TEST_F(VoiceNoteCaptureTest, CountdownEndsALongRecordingAndASecondRequestIsRefused) {
    install(kTone);
    auto first = startRecording(3);
    ASSERT_NE(first, nullptr);
    QuorvaneApiManager::startAudioRecord(3, host, outcomes.success(), outcomes.fail());
    ASSERT_TRUE(testing::waitFor([&] { return outcomes.calls.size() == 2; }, 10s));
    testing::runFor(200ms);

    ASSERT_EQ(outcomes.calls.size(), 2u);
    EXPECT_EQ(outcomes.calls[0], (std::pair<std::string, Value>{"fail", "NoMicrophonePermission"}));
    ASSERT_EQ(outcomes.calls[1].first, "success");
    const Value& result = outcomes.calls[1].second;
    EXPECT_EQ(result["duration"], "3");
    auto sound = testing::decodeSound(result["path"]);
    EXPECT_NEAR(sound.seconds(), 3.0, 0.3);
    EXPECT_NEAR(sound.frequency(), 440, 5);
    EXPECT_EQ(overlay(), nullptr);
}

// The limit watch stops the tool on wall time; an input that ends mid-recording fails it once.
TEST_F(VoiceNoteCaptureTest, ToolEndsOnceAtTheLimitOrWhenTheInputEnds) {
    install(kTone);
    auto tool = startTool("1");
    ASSERT_TRUE(testing::waitFor([&] { return events.size() == 2; }, 10s));
    EXPECT_EQ(events, (std::vector<Event>{{"onStart", "ok"}, {"onStop", tool->filePath()}}));
    EXPECT_FALSE(tool->judgeStatus());
    EXPECT_NEAR(testing::decodeSound(tool->filePath()).seconds(), 1.0, 0.3);

    events.clear();
    install("lavfi:sine=frequency=440:duration=0.5");
    tool = startTool("10");
    ASSERT_TRUE(testing::waitFor([&] { return events.size() == 2; }, 10s));
    testing::runFor(300ms);
    EXPECT_EQ(events, (std::vector<Event>{{"onStart", "ok"}, {"onError", "录音失败"}}));
    EXPECT_FALSE(tool->judgeStatus());
    tool->audioRecordStop();  // nothing left to stop
    EXPECT_EQ(events.size(), 2u);
}

TEST_F(VoiceNoteCaptureTest, InputsThatDoNotOpenRefuseTheMicrophone) {
    for (const char* input : {"nosuchformat:default", "file:/nonexistent/voice.wav", "lavfi:no_such_filter"}) {
        SCOPED_TRACE(input);
        install(input);
        outcomes.calls.clear();
        QuorvaneApiManager::startAudioRecord(5, host, outcomes.success(), outcomes.fail());
        ASSERT_TRUE(testing::waitFor([&] { return !outcomes.calls.empty(); }));
        testing::runFor(100ms);
        EXPECT_EQ(outcomes.calls, (std::vector<std::pair<std::string, Value>>{{"fail", "NoMicrophonePermission"}}));
        EXPECT_EQ(overlay(), nullptr);
    }
}

}  // namespace
}  // namespace quorvane
