// The input URL grammar, what an opening failure means for permissions, and the real-time clock's
// timers.
#include <algorithm>
#include <cerrno>

extern "C" {
#include <libavutil/error.h>
}

#include "capture_test_support.h"
#include "platform/linux/capture/capture_privacy.h"
#include "platform/linux/capture/input_url.h"

namespace quorvane::platform::linux_capture {
namespace {

using namespace std::chrono_literals;
using Options = std::vector<std::pair<std::string, std::string>>;

TEST(InputUrl, FormatIsBeforeTheFirstColonAndOptionsAfterTheQuestionMark) {
    struct Case {
        const char* url;
        std::string format, input;
        Options options;
    };
    for (const auto& c : {Case{"alsa:hw:1,0", "alsa", "hw:1,0", {}},
                          Case{"v4l2:/dev/video2?video_size=640x480&input_format=mjpeg", "v4l2", "/dev/video2",
                               {{"video_size", "640x480"}, {"input_format", "mjpeg"}}},
                          Case{"file:/tmp/a b.mp4", "", "/tmp/a b.mp4", {}}}) {  // "file": recognised by content
        SCOPED_TRACE(c.url);
        auto parsed = parseInputUrl(c.url);
        ASSERT_TRUE(parsed);
        EXPECT_EQ(parsed->format, c.format);
        EXPECT_EQ(parsed->input, c.input);
        EXPECT_EQ(parsed->options, c.options);
    }
    for (const char* bad : {"default", ":default", "v4l2:/dev/video0?loop", "v4l2:/dev/video0?a=1&&b=2"})
        EXPECT_FALSE(parseInputUrl(bad)) << bad;
}

TEST(CapturePermission, OpeningResultDecidesTheStatus) {
    EXPECT_EQ(statusForOpenResult(0), StatusAuthorized);
    EXPECT_EQ(statusForOpenResult(AVERROR(EACCES)), StatusDenied);
    EXPECT_EQ(statusForOpenResult(AVERROR(EPERM)), StatusDenied);
    EXPECT_EQ(statusForOpenResult(AVERROR(ENOENT)), StatusRestricted);
    EXPECT_EQ(statusForOpenResult(AVERROR(EBUSY)), StatusRestricted);
    EXPECT_EQ(statusForOpenResult(AVERROR_DEMUXER_NOT_FOUND), StatusRestricted);
}

TEST(LinuxRecordingClock, TimersTickOnTheMainThreadInDueOrderUntilInvalidated) {
    LinuxRecordingClock clock;
    std::vector<std::string> ticks;
    bool offMain = false;
    auto fast = clock.scheduleRepeating(0, 0.02, [&] {
        offMain |= !foundation::isMainThread();
        ticks.push_back("fast");
    });
    auto slow = clock.scheduleRepeating(0.05, 10, [&] { ticks.push_back("slow"); });
    ASSERT_TRUE(testing::waitFor([&] { return ticks.size() >= 5; }, 5s));
    fast->invalidate();
    EXPECT_FALSE(fast->isValid());
    auto seen = ticks.size();
    testing::runFor(100ms);
    slow->invalidate();
    testing::runFor(50ms);

    EXPECT_FALSE(offMain);
    EXPECT_EQ(ticks.front(), "fast");  // due at once
    EXPECT_EQ(std::count(ticks.begin(), ticks.end(), "slow"), 1);
    EXPECT_EQ(std::count(ticks.begin() + static_cast<long>(seen), ticks.end(), "fast"), 0);
    EXPECT_GE(clock.now(), 0.15);
}

}  // namespace
}  // namespace quorvane::platform::linux_capture
