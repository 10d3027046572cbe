// The recorder driver on the headless microphone: events, files in their real formats, the limit
// watch, interruptions, and the guards around start and stop.
#include <filesystem>
#include <fstream>

#include "audio_test_support.h"
#include "device/AudioRecordTool.h"

namespace quorvane {
namespace {

using testing::decodeAudioFile;

struct Event {
    std::string name, data;
    bool operator==(const Event&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Event& e) { return out << e.name << ": " << e.data; }
};
using Events = std::vector<Event>;

class AudioRecordToolTest : public testing::AudioTest {
protected:
    void start(const Value& param, const std::shared_ptr<AudioRecordTool>& on = nullptr) {
        (on ? on : tool)->audioRecordStartWithParam(param, [this](const std::string& name, const std::string& data) {
            events.push_back({name, data});
        });
    }
    std::shared_ptr<AudioRecordTool> tool = std::make_shared<AudioRecordTool>();
    Events events;
};

TEST_F(AudioRecordToolTest, StopOnRequestCompletesAnAacFileAndReleasesTheSession) {
    foundation::LogCapture log;
    tool->audioRecordStop();  // not recording yet: nothing at all
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(session->activations().empty());
    start(Value{{"duration", "10"}});
    EXPECT_TRUE(tool->judgeStatus());
    EXPECT_EQ(session->category(), "AVAudioSessionCategoryRecord");
    microphone->advance(4);
    tool->audioRecordStop();

    EXPECT_EQ(events, (Events{{"onStart", "ok"}, {"onStop", tool->filePath()}}));
    EXPECT_FALSE(tool->judgeStatus());
    EXPECT_EQ(tool->timer(), nullptr);
    EXPECT_EQ(microphone->liveTimers(), 0);
    auto activations = session->activations();
    ASSERT_EQ(activations.size(), 2u);
    EXPECT_TRUE(activations[0].active);
    EXPECT_FALSE(activations[1].active);
    EXPECT_EQ(activations[1].options, 1);
    EXPECT_TRUE(log.contains("结束录音"));
    EXPECT_TRUE(log.contains("录音完成"));

    // The default format's file, under "media" (its encoding is pinned with the others below).
    EXPECT_EQ(std::filesystem::path(tool->filePath()).parent_path(), mediaDirectory());
    auto audio = decodeAudioFile(tool->filePath());
    ASSERT_TRUE(audio.opened);
    // All the audio, plus at most the encoder's priming frame and the padded last frame.
    EXPECT_GE(audio.seconds(), 4.0);
    EXPECT_LE(audio.seconds(), 4.0 + 2 * 1024 / 8000.0);
    EXPECT_GT(audio.rms, 0.1);  // the tone, not silence
}

// The format text chooses the encoding and the suffix; numbers and texts read alike.
TEST_F(AudioRecordToolTest, ParametersChooseEncodingSuffixRateAndChannels) {
    struct Case {
        Value param;
        std::string codec, extension;
        int sampleRate = 8000, channels = 2;
    };
    const std::vector<Case> cases = {
        {{{"duration", "5"}, {"format", "mp3"}}, "mp3float", ".mp3"},
        {{{"duration", "5"}, {"format", "aac"}}, "aac", ".aac"},
        {{{"duration", "5"}, {"format", "acc"}}, "pcm_s16le", ".acc"},
        {{{"duration", "5"}, {"format", "wav"}}, "pcm_s16le", ".wav"},
        {{{"duration", "5"}}, "aac", ".aac"},
        {{{"duration", 5}, {"sampleRate", 16000}, {"numberOfChannels", "1"}, {"format", "lpcm"}}, "pcm_s16le", ".lpcm", 16000, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.param.dump());
        auto fresh = std::make_shared<AudioRecordTool>();
        fresh->audioRecordStartWithParam(c.param, nullptr);
        microphone->advance(1);
        fresh->audioRecordStop();
        EXPECT_EQ(std::filesystem::path(fresh->filePath()).extension(), c.extension);
        auto audio = decodeAudioFile(fresh->filePath());
        ASSERT_TRUE(audio.opened);
        EXPECT_EQ(audio.codec.substr(0, 3), c.codec.substr(0, 3));
        EXPECT_EQ(audio.sampleRate, c.sampleRate);
        EXPECT_EQ(audio.channels, c.channels);
        // PCM holds the second exactly; an encoder may add its priming and a padded last frame.
        EXPECT_GE(audio.seconds(), 1.0 - 0.01);
        EXPECT_LE(audio.seconds(), 1.0 + (c.codec == "pcm_s16le" ? 0.01 : 2 * 1152 / 8000.0));
    }
}

TEST_F(AudioRecordToolTest, QueuedPcmIsRecordedBeforeTheTone) {
    microphone->queuePcm(std::vector<std::int16_t>(44100 * 2, 0));  // two seconds of silence
    start(Value{{"duration", "5"}, {"format", "wav"}});
    microphone->advance(2);
    tool->audioRecordStop();
    auto silent = decodeAudioFile(tool->filePath());
    EXPECT_NEAR(silent.seconds(), 2.0, 0.01);
    EXPECT_LT(silent.rms, 1e-4);

    start(Value{{"duration", "5"}, {"format", "wav"}});
    microphone->advance(2);
    tool->audioRecordStop();
    EXPECT_GT(decodeAudioFile(tool->filePath()).rms, 0.1);
}

TEST_F(AudioRecordToolTest, LimitWatchStopsAtTheLimitAndKeepsTheSessionActive) {
    start(Value{{"duration", "3"}, {"format", "wav"}});
    microphone->advance(5);

    EXPECT_EQ(events, (Events{{"onStart", "ok"}, {"onStop", tool->filePath()}}));
    EXPECT_FALSE(tool->judgeStatus());
    EXPECT_EQ(microphone->liveTimers(), 0);
    EXPECT_TRUE(session->isActive());
    EXPECT_EQ(session->activations().size(), 1u);
    EXPECT_NEAR(decodeAudioFile(tool->filePath()).seconds(), 3.0, 0.01);

    // A stop after the limit did the work is a stop while not recording: nothing at all.
    foundation::LogCapture log;
    tool->audioRecordStop();
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(events.size(), 2u);
}

TEST_F(AudioRecordToolTest, NoLimitRecordsIntoAutoAudioReplacingTheEarlierFile) {
    std::filesystem::create_directories(mediaDirectory());
    std::string earlier = mediaDirectory() + "/AutoAudio.wav";
    std::ofstream(earlier) << "an earlier note that is not audio";
    start(Value{{"duration", "0"}, {"format", "wav"}});
    EXPECT_EQ(tool->filePath(), earlier);
    EXPECT_EQ(tool->timer(), nullptr);
    microphone->advance(70);  // beyond any default limit
    EXPECT_TRUE(tool->judgeStatus());
    tool->audioRecordStop();
    auto audio = decodeAudioFile(earlier);
    ASSERT_TRUE(audio.opened);
    EXPECT_NEAR(audio.seconds(), 70.0, 0.01);
}

TEST_F(AudioRecordToolTest, InterruptionPausesAndItsEndResumes) {
    start(Value{{"duration", "30"}, {"format", "wav"}});
    microphone->advance(2);
    session->interrupt(1);
    EXPECT_FALSE(tool->judgeStatus());
    microphone->advance(3);
    tool->audioRecordStop();  // not recording while interrupted: ignored
    EXPECT_EQ(events, (Events{{"onStart", "ok"}}));
    session->interrupt(7);  // unknown types change nothing
    EXPECT_FALSE(tool->judgeStatus());
    session->interrupt(0);
    EXPECT_TRUE(tool->judgeStatus());
    microphone->advance(1.5);
    tool->audioRecordStop();
    EXPECT_EQ(events, (Events{{"onStart", "ok"}, {"onStop", tool->filePath()}}));
    EXPECT_NEAR(decodeAudioFile(tool->filePath()).seconds(), 3.5, 0.01);
}

TEST_F(AudioRecordToolTest, StartWhileRecordingIsIgnoredAndKeepsTheFirstListener) {
    start(Value{{"duration", "10"}, {"format", "wav"}});
    std::string first = tool->filePath();
    bool secondHeard = false;
    tool->audioRecordStartWithParam(Value{{"format", "mp3"}}, [&](const std::string&, const std::string&) { secondHeard = true; });
    EXPECT_EQ(tool->filePath(), first);
    microphone->advance(1);
    tool->audioRecordStop();
    EXPECT_FALSE(secondHeard);
    EXPECT_EQ(events, (Events{{"onStart", "ok"}, {"onStop", first}}));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(mediaDirectory()), {}), 1);
}

TEST_F(AudioRecordToolTest, RecorderThatCannotBeMadeReportsInitFailure) {
    for (const Value& param : {Value{{"sampleRate", "0"}}, Value{{"numberOfChannels", "0"}},
                               Value{{"format", "mp3"}, {"sampleRate", "7000"}}}) {
        SCOPED_TRACE(param.dump());
        foundation::LogCapture log;
        events.clear();
        auto fresh = std::make_shared<AudioRecordTool>();
        start(param, fresh);
        EXPECT_EQ(events, (Events{{"onError", "初始化失败"}}));
        EXPECT_TRUE(log.contains("音频格式和文件存储格式不匹配,无法初始化Recorder"));
        EXPECT_FALSE(fresh->judgeStatus());
    }
}

TEST_F(AudioRecordToolTest, RecorderThatExistsButCannotRecordStillStarts) {
    microphone->setUnavailable(true);
    foundation::LogCapture log;
    start(Value{{"duration", "5"}});
    EXPECT_EQ(events, (Events{{"onStart", "ok"}}));
    EXPECT_FALSE(log.contains("音频格式和文件存储格式不匹配,无法初始化Recorder"));
    EXPECT_FALSE(tool->judgeStatus());
    microphone->advance(6);
    tool->audioRecordStop();  // nothing is recording: nothing to stop
    EXPECT_EQ(events.size(), 1u);
}

TEST_F(AudioRecordToolTest, SandboxPathHelpers) {
    std::string unique = AudioRecordTool::getPathFromSandboxTempWithMiddleDir("media", "", "acc");
    EXPECT_NE(unique, AudioRecordTool::getPathFromSandboxTempWithMiddleDir("media", "", "acc"));
    EXPECT_TRUE(std::filesystem::is_directory(mediaDirectory()));
    EXPECT_EQ(AudioRecordTool::getPathFromSandboxTempWithMiddleDir("", "note", "mp3"),
              foundation::temporaryDirectory() + "note.mp3");
    std::ofstream(unique) << "x";
    AudioRecordTool::deleteSandboxFile("file://" + unique);
    EXPECT_FALSE(std::filesystem::exists(unique));
    AudioRecordTool::deleteSandboxFile("file://" + unique);  // already gone: ignored
}

}  // namespace
}  // namespace quorvane
