// What `quorvane upload` prints, driven with its own clock: throttled redraws, the last one always,
// JSON events with their fields, and the rate of the current run only.
#include <gtest/gtest.h>

#include <sstream>

#include "foundation/value.h"
#include "upload_progress_view.h"

namespace quorvane::app {
namespace {
using namespace std::chrono_literals;
using Clock = UploadProgressView::Clock;

std::vector<Value> jsonLines(const std::string& text) {
    std::vector<Value> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        auto value = foundation::parseJson(line);
        EXPECT_TRUE(value && value->is_object()) << line;
        if (value) lines.push_back(*value);
    }
    return lines;
}

TEST(UploadProgressView, JsonProgressIsThrottledButTheLastReportAlwaysShows) {
    std::ostringstream out;
    UploadProgressView view(ViewMode::Json, out);
    auto t = Clock::time_point{} + 1h;
    view.started("a.bin", t);
    view.progress("a.bin", 100, 1000, t + 10ms);
    view.progress("a.bin", 200, 1000, t + 20ms);  // too soon after the first
    view.progress("a.bin", 300, 1000, t + 130ms);
    view.progress("a.bin", 1000, 1000, t + 140ms);  // complete: shown at once
    view.progress("b.bin", 5, 10, t + 500ms);       // not the current file: ignored
    auto lines = jsonLines(out.str());
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0]["event"], "started");
    EXPECT_EQ(lines[1]["uploaded"], 100);
    EXPECT_EQ(lines[2]["uploaded"], 300);
    EXPECT_EQ(lines[3]["uploaded"], 1000);
    EXPECT_EQ(lines[3]["total"], 1000);
}

TEST(UploadProgressView, OutcomesCarryIdsAndOnlySuccessCarriesTheByteCount) {
    std::ostringstream out;
    UploadProgressView view(ViewMode::Json, out);
    view.finished({"v.mp4", true, std::string("vid1"), std::string("bkt"), std::string("obj"), 42, {}, {}});
    view.finished({"x.bin", false, std::nullopt, std::string("bkt"), std::nullopt, 0, "InvalidArgument", "bad"});
    auto lines = jsonLines(out.str());
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], (Value{{"event", "success"}, {"file", "v.mp4"}, {"videoId", "vid1"}, {"bucket", "bkt"},
                               {"object", "obj"}, {"bytes", 42}}));
    EXPECT_EQ(lines[1]["event"], "failure");
    EXPECT_TRUE(lines[1]["videoId"].is_null());
    EXPECT_TRUE(lines[1]["object"].is_null());
    EXPECT_EQ(lines[1]["code"], "InvalidArgument");
    EXPECT_FALSE(lines[1].contains("bytes"));
}

TEST(UploadProgressView, RateCountsOnlyTheBytesOfThisRun) {
    std::ostringstream out;
    UploadProgressView view(ViewMode::Plain, out);
    auto t = Clock::time_point{} + 1h;
    view.started("a.bin", t);
    view.resuming("a.bin", 5000, 10000);  // stored by an earlier run
    view.progress("a.bin", 6000, 10000, t + 1s);
    ASSERT_TRUE(view.rate());
    EXPECT_DOUBLE_EQ(*view.rate(), 1000.0);
    EXPECT_NE(out.str().find("resuming a.bin: 5000 of 10000 bytes already uploaded"), std::string::npos);
}

TEST(UploadProgressView, TerminalBarRedrawsInPlaceAndEndsItsLineBeforeOtherText) {
    std::ostringstream out;
    UploadProgressView view(ViewMode::Terminal, out);
    auto t = Clock::time_point{} + 1h;
    view.started("a.bin", t);
    view.progress("a.bin", 512, 2048, t + 1s);
    view.note("hello");
    const std::string text = out.str();
    auto bar = text.find("\r\033[K");
    ASSERT_NE(bar, std::string::npos);
    EXPECT_NE(text.find(" 25%", bar), std::string::npos);
    EXPECT_NE(text.find("512 B / 2.0 KiB"), std::string::npos);
    EXPECT_NE(text.find("\nhello\n", bar), std::string::npos);
}

TEST(UploadProgressView, HumanUnitsAndDurations) {
    EXPECT_EQ(UploadProgressView::humanBytes(812), "812 B");
    EXPECT_EQ(UploadProgressView::humanBytes(1536), "1.5 KiB");
    EXPECT_EQ(UploadProgressView::humanBytes(3.0 * 1024 * 1024 * 1024), "3.0 GiB");
    EXPECT_EQ(UploadProgressView::humanDuration(65), "1:05");
    EXPECT_EQ(UploadProgressView::humanDuration(3 * 3600 + 3), "3:00:03");
    EXPECT_EQ(UploadProgressView::humanDuration(std::nullopt), "--:--");
}

}  // namespace
}  // namespace quorvane::app
