// What the engine tells the services while a file goes up: the part events (20005) with the upload
// id, part number and retry flag; the progress reports' ratio and parts done; and a failed
// initiation that a single retry repairs.
#include <cmath>
#include <set>

#include "engine_cloud_support.h"

using namespace quorvane;
using namespace quorvane::test;
using emulator::Fault;

namespace {

constexpr std::size_t kPart = 1048576;
constexpr std::size_t kFileSize = 3 * kPart + kPart / 2;  // four parts, the last one half

}  // namespace

class EngineReports : public EngineCloudTest {
protected:
    void SetUp() override {
        EngineCloudTest::SetUp();
        ASSERT_TRUE(initSts(client));
    }
    std::string uploadIdOf(const std::string& key) const {
        for (const auto& u : cloud.uploads())
            if (u.key == key) return u.uploadId;
        return "";
    }
};

TEST_F(EngineReports, PartEventsAndProgressReportsCountWholePartsOfTheConfiguredSize) {
    auto clip = makeFile("clip.mp4", randomBytes(kFileSize, 31));
    ASSERT_TRUE(client->addFile(clip, cloud.endpoint(), bucket(), "up/reports.mp4", nullptr));
    ASSERT_TRUE(client->start());
    ASSERT_TRUE(listener.waitFor("finish"));
    const std::string uploadId = uploadIdOf("up/reports.mp4");
    ASSERT_FALSE(uploadId.empty());

    // 20005: one per new part number (total sent ÷ 1 MiB). Progress calls may skip a boundary, but the
    // last one (3.5 MiB sent) always lands in part number 3, so that one is announced.
    const auto partEvents = eventsWithCode("20005");
    std::multiset<std::string> partNumbers;
    for (const auto& event : partEvents) {
        auto args = argsOf(event);
        EXPECT_EQ(args["ui"], uploadId);
        EXPECT_EQ(args["pr"], "0");  // no retry in this run
        EXPECT_TRUE(args["pn"] == "0" || args["pn"] == "1" || args["pn"] == "2" || args["pn"] == "3") << args["pn"];
        partNumbers.insert(args["pn"]);
    }
    EXPECT_EQ(partNumbers.count("3"), 1u) << "the last part number is announced, once";
    EXPECT_EQ(std::set<std::string>(partNumbers.begin(), partNumbers.end()).size(), partNumbers.size())
        << "a part number is announced once";

    ASSERT_TRUE(waitUntil([&] { return !cloud.progressReports().empty(); }));
    std::set<std::string> doneParts;
    for (const auto& report : cloud.progressReports()) {
        doneParts.insert(report.fields.value("DonePartsCount", ""));
        EXPECT_EQ(report.fields.value("PartSize", ""), "1048576");
        // The ratio is that of one call's bytes, in whole hundredths: never more than a part's share
        // (28 hundredths of this file), where a running total would end at 1.
        const double ratio = std::stod(report.fields.value("UploadRatio", "-1"));
        EXPECT_GE(ratio, 0);
        EXPECT_LE(ratio, 0.28 + 1e-6);
        EXPECT_NEAR(ratio * 100, std::round(ratio * 100), 1e-4) << report.fields.value("UploadRatio", "");
    }
    EXPECT_TRUE(doneParts.count("3")) << "the last report counts the three whole parts behind it";
    for (const auto& parts : doneParts) EXPECT_TRUE(parts == "0" || parts == "1" || parts == "2" || parts == "3") << parts;
}

TEST_F(EngineReports, InitiationThatFailsOnceIsRetriedOnceAndSucceeds) {
    // The storage client tries three times itself; the engine sees the third failure only.
    cloud.addFaults({Fault::error("InitiateMultipartUpload", 503, "ServiceUnavailable"),
                     Fault::error("InitiateMultipartUpload", 503, "ServiceUnavailable"),
                     Fault::error("InitiateMultipartUpload", 503, "ServiceUnavailable")});
    auto path = makeFile("init.bin", randomBytes(200 << 10, 32));
    ASSERT_TRUE(client->addFile(path, cloud.endpoint(), bucket(), "up/init.bin"));
    ASSERT_TRUE(client->start());
    ASSERT_TRUE(listener.waitFor("finish"));
    EXPECT_EQ(cloud.firedCount("InitiateMultipartUpload"), 3u);
    EXPECT_EQ(listener.count("retry"), 1);
    // A successful initiation clears the retry count: nothing is left to report as resumed.
    EXPECT_EQ(listener.count("retryResume"), 0);
    EXPECT_EQ(listener.count("failure"), 0);
    EXPECT_EQ(client->retryNotify(), 0);
    EXPECT_EQ(cloud.objectBytes(bucket(), "up/init.bin"), randomBytes(200 << 10, 32));
}

// A host may switch reporting off while a file is under way: the next progress call already sends
// no report (only the first call's report, sent before the host heard of it, may arrive).
TEST_F(EngineReports, ReportingSwitchedOffMidFileStopsTheReportsAtTheNextProgressCall) {
    auto clip = makeFile("clip.mp4", randomBytes(kFileSize, 37));
    auto switching = std::make_shared<VODUploadListener>(*engineOf(*client).listener());
    std::atomic<int> progressCalls{0};
    switching->progress = [this, &progressCalls, inner = switching->progress](const auto& file, long sent, long total) {
        if (progressCalls++ == 0) client->setReportEnabled(false);  // on the engine's queue: takes effect at once
        if (inner) inner(file, sent, total);
    };
    client->setListener(switching);
    ASSERT_TRUE(client->addFile(clip, cloud.endpoint(), bucket(), "up/switched.mp4", nullptr));
    ASSERT_TRUE(client->start());
    ASSERT_TRUE(listener.waitFor("finish"));
    EXPECT_GT(progressCalls.load(), 2);
    EXPECT_FALSE(waitUntil([&] { return cloud.progressReports().size() > 1; }, 2s));
}
