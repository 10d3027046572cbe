// What `quorvane upload` prints, driven with its own clock and width: throttled redraws, the last one
// always, JSON events with their fields and time, the rate of the current run only, a terminal line that
// fits any width, and progress that never goes back.
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

// Progress is throttled but the last report always shows, and never goes back after a retry;
// outcomes carry ids and only a success carries the byte count; bytes that are not UTF-8 never throw.
TEST(UploadProgressView, JsonEventsAreThrottledNeverGoBackAndCarryTheirFields) {
    std::ostringstream out;
    UploadProgressView view(ViewMode::Json, out);
    auto t = Clock::time_point{} + 1h;
    view.started("a.bin", t);
    view.progress("a.bin", 100, 1000, t + 10ms);
    view.progress("a.bin", 200, 1000, t + 20ms);  // too soon after the first
    view.progress("a.bin", 300, 1000, t + 130ms);
    view.progress("a.bin", 1000, 1000, t + 140ms);  // complete: shown at once
    view.progress("b.bin", 5, 10, t + 500ms);       // not started: ignored
    view.started("c.bin", t + 1s);
    view.progress("c.bin", 2097152, 4194304, t + 2s);
    view.progress("c.bin", 524288, 4194304, t + 3s);  // a part sent again from its start
    view.finished({"v.mp4", true, std::string("vid1"), std::string("bkt"), std::string("obj"), 42, {}, {}});
    view.finished({"x.bin", false, std::nullopt, std::string("bkt"), std::nullopt, 0, "InvalidArgument", "bad"});
    view.started("bad\xff\xfename.bin", t + 4s);
    view.finished({"bad\xff\xfename.bin", false, std::nullopt, std::nullopt, std::nullopt, 0, "E\xff",
                   "server \xfe\xff text"});
    auto lines = jsonLines(out.str());
    ASSERT_EQ(lines.size(), 11u);
    EXPECT_EQ(lines[0]["event"], "started");
    EXPECT_EQ(lines[1]["uploaded"], 100);
    EXPECT_EQ(lines[2]["uploaded"], 300);
    EXPECT_EQ(lines[3]["uploaded"], 1000);
    EXPECT_EQ(lines[3]["total"], 1000);
    EXPECT_EQ(lines[6]["uploaded"], 2097152);

    EXPECT_TRUE(lines[7]["time"].is_string());
    lines[7].erase("time");
    EXPECT_EQ(lines[7], (Value{{"event", "success"}, {"file", "v.mp4"}, {"videoId", "vid1"}, {"bucket", "bkt"},
                               {"object", "obj"}, {"bytes", 42}}));
    EXPECT_EQ(lines[8]["event"], "failure");
    EXPECT_TRUE(lines[8]["videoId"].is_null());
    EXPECT_TRUE(lines[8]["object"].is_null());
    EXPECT_EQ(lines[8]["code"], "InvalidArgument");
    EXPECT_FALSE(lines[8].contains("bytes"));
    EXPECT_EQ(lines[10]["message"], "server \xEF\xBF\xBD\xEF\xBF\xBD text");
}

// The rate counts only the bytes of this run; each retry is a line of its own, never folded into the one
// before, with server text made printable; quiet shows failures only.
TEST(UploadProgressView, PlainLinesForRateRetriesAndQuiet) {
    std::ostringstream out;
    UploadProgressView view(ViewMode::Plain, out);
    auto t = Clock::time_point{} + 1h;
    view.started("a.bin", t);
    view.resuming("a.bin", 5000, 10000);  // stored by an earlier run
    view.progress("a.bin", 6000, 10000, t + 1s);
    ASSERT_TRUE(view.rate());
    EXPECT_DOUBLE_EQ(*view.rate(), 1000.0);
    EXPECT_NE(out.str().find("resuming a.bin: 5000 of 10000 bytes already uploaded"), std::string::npos);

    std::ostringstream retries;
    UploadProgressView retrying(ViewMode::Plain, retries);
    retrying.requestRetry("a.bin", 1, 2, "HTTP 503 \x1b[2JSlowDown", 0.2);
    retrying.retry("a.bin", 1, 5, "Network error: refused", 2.0);
    retrying.retry("a.bin", 2, 5, "Network error: refused", 2.0);
    EXPECT_EQ(retries.str(),
              "a request for a.bin failed (HTTP 503 [2JSlowDown): sending it again in 0.2 s, 1 of 2\n"
              "trouble with a.bin (Network error: refused): retry 1 of 5 in 2.0 s\n"
              "trouble with a.bin (Network error: refused): retry 2 of 5 in 2.0 s\n");

    std::ostringstream quiet;
    UploadProgressView failuresOnly(ViewMode::Plain, quiet);
    failuresOnly.setQuiet(true);
    failuresOnly.started("a.bin", t);
    failuresOnly.progress("a.bin", 10, 10, t + 1s);
    failuresOnly.finished({"a.bin", true, std::nullopt, std::string("b"), std::string("a.bin"), 10, {}, {}});
    failuresOnly.finished({"c.bin", false, std::nullopt, std::string("b"), std::nullopt, 0, "Denied", "no"});
    failuresOnly.summary({1, 0, 1, 10, 10, 1.0});
    EXPECT_EQ(quiet.str(), "failed c.bin: no (Denied)\n");
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

// The terminal line of each redraw: the text after the last "\r\033[K" of each write.
std::vector<std::string> barLines(const std::string& text) {
    std::vector<std::string> bars;
    const std::string redraw = "\r\033[K";
    for (auto at = text.find(redraw); at != std::string::npos; at = text.find(redraw, at + 1)) {
        auto from = at + redraw.size();
        auto end = text.find_first_of("\r\n", from);
        bars.push_back(text.substr(from, end == std::string::npos ? std::string::npos : end - from));
    }
    return bars;
}

TEST(UploadProgressView, HumanUnitsAndATerminalLineThatFitsEveryWidth) {
    EXPECT_EQ(UploadProgressView::humanBytes(812), "812 B");
    EXPECT_EQ(UploadProgressView::humanBytes(1536), "1.5 KiB");
    EXPECT_EQ(UploadProgressView::humanBytes(3.0 * 1024 * 1024 * 1024), "3.0 GiB");
    EXPECT_EQ(UploadProgressView::humanDuration(65), "1:05");
    EXPECT_EQ(UploadProgressView::humanDuration(3 * 3600 + 3), "3:00:03");
    EXPECT_EQ(UploadProgressView::humanDuration(std::nullopt), "--:--");
    const std::string longName = "a-very-long-file-name-\xE4\xB8\xAD\xE6\x96\x87-that-goes-on-and-on.bin";
    for (int columns : {20, 40, 80, 200}) {
        for (std::uint64_t total : {std::uint64_t{0}, std::uint64_t{1000}, std::uint64_t{5} << 40}) {
            for (auto rate : {std::optional<double>{}, std::optional<double>{123456789.0}}) {
                auto line = UploadProgressView::fitLine(longName, total / 3, total, rate, columns);
                EXPECT_LE(UploadProgressView::displayWidth(line), std::size_t(columns - 1)) << columns << ": " << line;
                EXPECT_EQ(line.find('\n'), std::string::npos);
            }
        }
    }
    // Wide enough: every part shows; narrow: the percentage stays.
    auto wide = UploadProgressView::fitLine("a.bin", 512, 2048, 1024.0, 200);
    EXPECT_NE(wide.find("["), std::string::npos);
    EXPECT_NE(wide.find("ETA"), std::string::npos);
    auto narrow = UploadProgressView::fitLine("a.bin", 512, 2048, 1024.0, 40);
    EXPECT_NE(narrow.find(" 25%"), std::string::npos);
}

TEST(UploadProgressView, SeveralFilesAtOnceShareOneLineThatFitsAndFollowsResizes) {
    for (int columns : {40, 80, 200}) {
        std::ostringstream out;
        UploadProgressView view(ViewMode::Terminal, out, columns);
        int probed = 0;
        view.setColumnsProbe([&] { return ++probed == 3 ? 30 : 0; });  // the window shrinks once
        view.setPlanned(3, 3000);
        auto t = Clock::time_point{} + 1h;
        for (const char* file : {"one.bin", "two.bin", "three.bin"}) view.started(file, t);
        for (int step = 1; step <= 10; ++step)
            for (const char* file : {"one.bin", "two.bin", "three.bin"})
                view.progress(file, 100u * step - 1, 1000, t + std::chrono::milliseconds(150 * step));
        auto bars = barLines(out.str());
        ASSERT_GE(bars.size(), 5u);
        for (std::size_t i = 0; i < bars.size(); ++i) {
            int limit = i >= 2 ? 30 : columns;
            EXPECT_LE(UploadProgressView::displayWidth(bars[i]), std::size_t(limit - 1)) << bars[i];
            EXPECT_NE(bars[i].find("files"), std::string::npos) << bars[i];  // the total, not one copy per file
        }
        // Redraws stay on one line: no newline between two redraws.
        auto text = out.str();
        auto first = text.find("\r\033[K");
        EXPECT_EQ(text.find('\n', first), std::string::npos);
    }
}

// A silence is told at once, then every 10 s in lines and events, every call on the terminal line
// (in place of the rate); any sign of the file ends it, and a later silence is told afresh.
TEST(UploadProgressView, SilenceIsToldEveryTenSecondsUntilTheFileMovesAgain) {
    auto t = Clock::time_point{} + 1h;
    std::ostringstream plain;
    UploadProgressView lines(ViewMode::Plain, plain);
    lines.started("a.bin", t);
    for (int seconds = 5; seconds <= 16; ++seconds) lines.waiting("a.bin", seconds);
    lines.progress("a.bin", 10, 100, t + 17s);
    lines.waiting("a.bin", 6);
    lines.requestRetry("a.bin", 1, 5, "timeout", 0.2);
    lines.waiting("a.bin", 7);
    EXPECT_EQ(plain.str(),
              "uploading a.bin\na.bin: no answer for 5 s\na.bin: no answer for 15 s\n"
              "a.bin: 10% (10 of 100 bytes)\na.bin: no answer for 6 s\n"
              "a request for a.bin failed (timeout): sending it again in 0.2 s, 1 of 5\na.bin: no answer for 7 s\n");

    std::ostringstream json;
    UploadProgressView events(ViewMode::Json, json);
    events.waiting("b.bin", 5);  // its lookup is out: not started yet
    events.waiting("b.bin", 9);
    auto parsed = jsonLines(json.str());
    ASSERT_EQ(parsed.size(), 1u);
    EXPECT_EQ(parsed[0]["event"], "waiting");
    EXPECT_EQ(parsed[0]["file"], "b.bin");
    EXPECT_EQ(parsed[0]["seconds"], 5);

    std::ostringstream terminal;
    UploadProgressView bar(ViewMode::Terminal, terminal, 100);
    bar.started("c.bin", t);
    bar.progress("c.bin", 50, 100, t + 1s);
    bar.waiting("c.bin", 6);
    bar.waiting("c.bin", 7);
    bar.progress("c.bin", 60, 100, t + 9s);
    auto drawn = barLines(terminal.str());
    ASSERT_EQ(drawn.size(), 4u);
    EXPECT_NE(drawn[1].find("no answer for 6 s"), std::string::npos) << drawn[1];
    EXPECT_NE(drawn[2].find("no answer for 7 s"), std::string::npos) << drawn[2];
    EXPECT_EQ(drawn[3].find("no answer"), std::string::npos) << drawn[3];
    EXPECT_NE(drawn[3].find("ETA"), std::string::npos) << drawn[3];

    std::ostringstream quiet;
    UploadProgressView silent(ViewMode::Plain, quiet);
    silent.setQuiet(true);
    silent.waiting("d.bin", 5);
    EXPECT_EQ(quiet.str(), "");
}

}  // namespace
}  // namespace quorvane::app
