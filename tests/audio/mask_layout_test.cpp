// The voice-note overlay takes its layout from the bundle's interface file; without the file it is
// bare, says which file is missing, and the recording still ends with the countdown.
#include "audio_test_support.h"
#include "device/AudioRecordMaskView.h"
#include "device/QrScanStyle.h"
#include "foundation/log.h"

namespace quorvane {
namespace {

class MaskLayout : public testing::AudioTest {
protected:
    void TearDown() override {
        setScanResourceDirectory(std::nullopt);
        testing::AudioTest::TearDown();
    }
};

TEST_F(MaskLayout, OutletsComeFromTheFileAndAMissingFileLeavesABareOverlay) {
    auto shown = AudioRecordMaskView::initWithAudioRecordMaxTimeLimit(5, [](const std::string&, std::int32_t) {});
    ASSERT_TRUE(shown->durationLab() && shown->stopButton());
    EXPECT_EQ(shown->stopButton()->title(), "结束录音");
    shown->stopButton()->tap();

    foundation::ScopedTempDir empty;
    setScanResourceDirectory(empty.path());
    foundation::LogCapture log;
    std::vector<std::int32_t> stops;
    auto bare = AudioRecordMaskView::initWithAudioRecordMaxTimeLimit(
        3, [&](const std::string&, std::int32_t seconds) { stops.push_back(seconds); });
    EXPECT_TRUE(log.contains("Could not load the interface file QuorvaneApiSDKImage.bundle/AudioRecordMaskView"));
    EXPECT_TRUE(bare->subviews().empty());
    EXPECT_FALSE(bare->durationLab());
    EXPECT_FALSE(bare->stopButton());
    microphone->advance(4);
    EXPECT_EQ(stops, std::vector<std::int32_t>{3});
}

}  // namespace
}  // namespace quorvane
