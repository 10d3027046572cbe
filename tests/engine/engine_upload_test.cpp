// The resumable multipart upload against the emulator: notification, listener order, telemetry (the
// part events with upload id, part number and retry flag) and progress reports (ratio, parts done, and
// the host switching them off), retries after network faults, the retry bound, expiry and pause/resume.
#include <cmath>
#include <set>

#include "engine_cloud_support.h"
#include "foundation/log.h"
#include "oss/oss_log.h"

using namespace quorvane;
using namespace quorvane::test;

namespace {

constexpr std::size_t kFileSize = 3 * 1048576 + 524288;  // 3.5 MiB: four 1 MiB parts

std::shared_ptr<VodInfo> sampleVodInfo() {
    auto info = std::make_shared<VodInfo>();
    info->title = "engine test";
    info->desc = "multipart";
    info->cateId = 7;
    info->tags = "a,b";
    info->coverUrl = "http://example.invalid/cover.jpg";
    return info;
}

}  // namespace

class MultipartUpload : public EngineCloudTest {
protected:
    void SetUp() override {
        EngineCloudTest::SetUp();
        ASSERT_TRUE(initSts(client));
    }
};

TEST_F(MultipartUpload, FilesGoUpIdenticalWithNotificationEventsAndProgressReports) {
    auto clip = makeFile("clip.mp4", randomBytes(kFileSize, 10));
    auto plain = makeFile("plain.bin", randomBytes(150 << 10, 11));
    auto info = sampleVodInfo();
    ASSERT_TRUE(client->addFile(clip, cloud.endpoint(), bucket(), "up/clip.mp4", info));
    ASSERT_TRUE(addAndStart(plain, "up/plain.bin"));
    ASSERT_TRUE(listener.waitFor("finish", 2));
    ASSERT_TRUE(waitUntil([&] { return client->state() == VODClientState::Finished; }));

    EXPECT_EQ(listener.folded(), (std::vector<std::string>{"started", "progress", "success", "finish", "started",
                                                           "progress", "success", "finish"}));
    auto object = cloud.object(bucket(), "up/clip.mp4");
    ASSERT_TRUE(object);
    EXPECT_EQ(cloud.objectBytes(bucket(), "up/clip.mp4"), randomBytes(kFileSize, 10));
    EXPECT_EQ(object->partCount, 4);
    EXPECT_EQ(object->notification, info->notificationValue());
    auto other = cloud.object(bucket(), "up/plain.bin");
    ASSERT_TRUE(other);
    EXPECT_FALSE(other->notificationRaw);  // no VodInfo, no header
    EXPECT_EQ(listener.results().at(0).bucket, bucket());
    EXPECT_EQ(listener.results().at(0).endpoint, cloud.endpoint());
    EXPECT_FALSE(listener.results().at(0).videoId);

    const auto start = eventsWithCode("20002");
    ASSERT_EQ(start.size(), 2u);
    const auto& clipStart = start[0].value("args", "").find("ok=up/clip.mp4") != std::string::npos ? start[0] : start[1];
    for (const char* field : {"ft=video", "fs=3670016", "ps=1048576", "bu=quorvane-media", "ok=up/clip.mp4"})
        EXPECT_NE(clipStart.value("args", "").find(field), std::string::npos) << field;
    EXPECT_EQ(clipStart.value("md", ""), "uploader");
    EXPECT_EQ(clipStart.value("av", ""), "1.6.5");
    EXPECT_EQ(eventsWithCode("20003").size(), 2u);
    EXPECT_FALSE(eventsWithCode("20007").empty());
    std::map<std::string, std::string> uploadIds;  // by key
    for (const auto& u : cloud.uploads()) uploadIds[u.key] = u.uploadId;
    const std::string clipUploadId = uploadIds["up/clip.mp4"];
    ASSERT_FALSE(clipUploadId.empty());

    // 20005: one per new part number (total sent ÷ 1 MiB), under the upload id of its file. Progress
    // calls may skip a boundary, but the clip's last one (3.5 MiB sent) always lands in part number 3,
    // so that one is announced.
    std::multiset<std::string> clipParts;
    for (const auto& event : eventsWithCode("20005")) {
        auto args = argsOf(event);
        EXPECT_TRUE(args["ui"] == clipUploadId || args["ui"] == uploadIds["up/plain.bin"]) << args["ui"];
        EXPECT_EQ(args["pr"], "0");  // no retry in this run
        EXPECT_TRUE(args["pn"] == "0" || args["pn"] == "1" || args["pn"] == "2" || args["pn"] == "3") << args["pn"];
        if (args["ui"] == clipUploadId) clipParts.insert(args["pn"]);
    }
    EXPECT_EQ(clipParts.count("3"), 1u) << "the last part number is announced, once";
    EXPECT_EQ(std::set<std::string>(clipParts.begin(), clipParts.end()).size(), clipParts.size())
        << "a part number is announced once";

    // Only the video reports its progress, under the upload id it went up with.
    ASSERT_TRUE(waitUntil([&] { return !cloud.progressReports().empty(); }));
    std::set<std::string> doneParts;
    for (const auto& report : cloud.progressReports()) {
        EXPECT_EQ(report.action, "ReportUploadProgress");
        EXPECT_EQ(report.fields.value("UploadId", ""), clipUploadId);
        EXPECT_EQ(report.fields.value("PartSize", ""), "1048576");
        EXPECT_EQ(report.fields.value("FileName", ""), vodLastPathComponent(clip));
        EXPECT_TRUE(report.signatureValid);
        doneParts.insert(report.fields.value("DonePartsCount", ""));
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

// A host may switch reporting off while a file is under way: the next progress call already sends
// no report (only the first call's report, sent before the host heard of it, may arrive).
TEST_F(MultipartUpload, ReportingSwitchedOffMidFileStopsTheReportsAtTheNextProgressCall) {
    auto clip = makeFile("clip.mp4", randomBytes(kFileSize, 37));
    auto switching = std::make_shared<VODUploadListener>(*engineOf(*client).listener());
    std::atomic<int> progressCalls{0};
    switching->progress = [this, &progressCalls, inner = switching->progress](const auto& file, long sent, long total) {
        if (progressCalls++ == 0) client->setReportEnabled(false);  // on the engine's queue: takes effect at once
        if (inner) inner(file, sent, total);
    };
    client->setListener(switching);
    ASSERT_TRUE(addAndStart(clip, "up/switched.mp4"));
    ASSERT_TRUE(listener.waitFor("finish"));
    EXPECT_GT(progressCalls.load(), 2);
    EXPECT_FALSE(waitUntil([&] { return cloud.progressReports().size() > 1; }, 2s));
}

TEST_F(MultipartUpload, FaultsMidUploadRetryOnceAndKeepTheStoredParts) {
    VODUploadEngineTestAccess::setMaxConcurrentParts(*client, 1);
    // Part 2 loses its connection, then gets "503" on every attempt the storage client makes (a
    // reset may be absorbed by the HTTP library reconnecting; a 503 left over is absorbed by the
    // storage client's own retry in the engine's second run).
    cloud.addFaults({Fault::delay("UploadPart", 0), Fault::reset("UploadPart", 1024),
                     Fault::error("UploadPart", 503, "ServiceUnavailable"),
                     Fault::error("UploadPart", 503, "ServiceUnavailable"),
                     Fault::error("UploadPart", 503, "ServiceUnavailable")});
    auto path = makeFile("retry.bin", randomBytes(kFileSize, 20));
    ASSERT_TRUE(addAndStart(path, "up/retry.bin"));
    ASSERT_TRUE(listener.waitFor("finish"));

    EXPECT_EQ(listener.count("retry"), 1);
    EXPECT_EQ(listener.count("retryResume"), 1);
    EXPECT_EQ(listener.count("failure"), 0);
    EXPECT_EQ(client->retryNotify(), 0);
    EXPECT_EQ(cloud.firedCount("UploadPart"), 5u);
    EXPECT_EQ(cloud.requests("InitiateMultipartUpload").size(), 1u);
    EXPECT_EQ(storedParts(), (std::map<int, int>{{1, 1}, {2, 1}, {3, 1}, {4, 1}}));  // none sent twice
    EXPECT_EQ(cloud.objectBytes(bucket(), "up/retry.bin"), randomBytes(kFileSize, 20));

    // The retried run announces the part it resumes at (part 1 is stored: not part 0, whichever part
    // the first progress call lands in) with the retry flag; that call ends the retry, so no later
    // announcement carries it.
    std::vector<std::map<std::string, std::string>> flagged;
    for (const auto& event : eventsWithCode("20005"))
        if (auto args = argsOf(event); args["pr"] != "0") flagged.push_back(args);
    ASSERT_EQ(flagged.size(), 1u);
    EXPECT_EQ(flagged[0]["pr"], "1");
    EXPECT_NE(flagged[0]["pn"], "0");
}

TEST_F(MultipartUpload, NetworkThatStaysDownEndsInFailureAfterMaxRetryCount) {
    static_assert(VODUploadEngine::kRetryWait == std::chrono::milliseconds(2000));
    client->setMaxRetryCount(3);
    oss::OSSLog::enableLog();
    foundation::LogCapture log;
    auto path = makeFile("down.bin", randomBytes(kFileSize, 30));
    // Nothing listens on port 1: every attempt is refused at once.
    ASSERT_TRUE(client->addFile(path, "http://127.0.0.1:1", bucket(), "up/down.bin"));
    ASSERT_TRUE(client->start());
    ASSERT_TRUE(listener.waitFor("failure"));
    oss::OSSLog::disableLog();

    const auto lines = log.lines();
    const auto waits = std::count_if(lines.begin(), lines.end(), [](const std::string& l) {
        return l.find("[Debug]: initMultiUpload Retry after 2 second....") != std::string::npos;
    });
    EXPECT_EQ(waits, 4);  // three retries, and the fourth failure that finds the count reached
    EXPECT_EQ(listener.count("retry"), 1);
    EXPECT_EQ(listener.count("retryResume"), 0);
    EXPECT_EQ(listener.failures().at(0).first, "6");
    EXPECT_EQ(client->retryNotify(), 0);
    // Settled before the listener heard, so a host that looks from the callback sees it.
    EXPECT_EQ(listener.failureStates(), std::vector<UploadFileState>{UploadFileState::Failure});
    EXPECT_EQ(client->state(), VODClientState::Started);  // halted on the failed file
}

// The bound is compared as an unsigned count: 0 allows no retry at all, a negative one is so large
// that the engine keeps retrying. Each engine-side failure is three refused initiations (the
// storage client's own attempts); a successful initiation clears the retry count, so nothing is left
// to report as resumed.
struct RetryBoundCase {
    std::int32_t maxRetryCount;
    int failedInitiations;  // seen by the engine
    bool finishes;
};

class RetryBound : public MultipartUpload, public ::testing::WithParamInterface<RetryBoundCase> {};

TEST_P(RetryBound, DecidesBetweenARetryAndAFailure) {
    const auto c = GetParam();
    client->setMaxRetryCount(c.maxRetryCount);
    for (int i = 0; i < 3 * c.failedInitiations; ++i)
        cloud.addFaults({Fault::error("InitiateMultipartUpload", 503, "ServiceUnavailable")});
    const auto path = dir.file("bound.bin");  // the test's name holds a slash
    writeFile(path, randomBytes(200 << 10, 33));
    ASSERT_TRUE(addAndStart(path, "up/bound.bin"));
    ASSERT_TRUE(waitUntil([&] { return listener.count("finish") + listener.count("failure") > 0; }));
    EXPECT_EQ(listener.count("retry"), c.maxRetryCount == 0 ? 0 : 1);  // told once, at the first retry
    EXPECT_EQ(listener.count("finish"), c.finishes ? 1 : 0);
    EXPECT_EQ(listener.count("failure"), c.finishes ? 0 : 1);
    EXPECT_EQ(cloud.requests("InitiateMultipartUpload").size(),
              static_cast<std::size_t>(3 * c.failedInitiations + (c.finishes ? 1 : 0)));
    EXPECT_EQ(cloud.firedCount("InitiateMultipartUpload"), static_cast<std::size_t>(3 * c.failedInitiations));
    EXPECT_EQ(listener.count("retryResume"), 0);
    EXPECT_EQ(client->retryNotify(), 0);
    if (c.finishes) {
        EXPECT_EQ(cloud.objectBytes(bucket(), "up/bound.bin"), randomBytes(200 << 10, 33));
    }
}

INSTANTIATE_TEST_SUITE_P(ZeroNegativeAndPositive, RetryBound,
                         ::testing::Values(RetryBoundCase{0, 1, false}, RetryBoundCase{-1, 3, true},
                                           RetryBoundCase{2, 2, true}, RetryBoundCase{2, 3, false}));

// An expired token pauses the upload and a new one continues it; a pause and resume later on continue it
// again. Neither begins another upload nor sends a stored part twice.
TEST_F(MultipartUpload, ExpiryAndPauseEachContinueTheSameUpload) {
    constexpr std::size_t kSize = 6 * 1048576 + 524288;  // seven parts: the pause lands with some to go
    VODUploadEngineTestAccess::setMaxConcurrentParts(*client, 1);
    cloud.addFaults({Fault::delay("UploadPart", 0), Fault::error("UploadPart", 403, "SecurityTokenExpired")});
    auto path = makeFile("resume.bin", randomBytes(kSize, 40));
    ASSERT_TRUE(addAndStart(path, "up/resume.bin"));
    ASSERT_TRUE(listener.waitFor("expire"));
    EXPECT_EQ(client->state(), VODClientState::Paused);
    const std::string uploadId = VODUploadEngineTestAccess::uploadId(*client);
    ASSERT_FALSE(uploadId.empty());

    // Slow parts from here on, so the pause lands while the rest goes up.
    for (int i = 0; i < 14; ++i) cloud.addFault(Fault::delay("UploadPart", 300));
    const std::size_t cancelledRuns = eventsWithCode("20008").size();
    auto fresh = cloud.issueSts();
    ASSERT_TRUE(client->resumeWithToken(fresh.AccessKeyId, fresh.AccessKeySecret, fresh.SecurityToken,
                                        fresh.Expiration));
    ASSERT_TRUE(waitUntil([&] { return storedParts().size() >= 2; }));
    ASSERT_TRUE(client->pause());
    EXPECT_FALSE(client->pause());
    ASSERT_TRUE(waitForCancelledRun(cancelledRuns + 1));
    EXPECT_EQ(client->state(), VODClientState::Paused);
    EXPECT_EQ(VODUploadEngineTestAccess::uploadId(*client), uploadId);
    // A part whose bytes were all on the wire when the pause cancelled it may still be stored by the
    // service afterwards; the parts stored by now (part 1 among them) must not go up again.
    const auto beforeResume = storedParts();
    ASSERT_EQ(beforeResume.count(1), 1u);

    ASSERT_TRUE(client->resume());
    EXPECT_FALSE(client->resume());
    ASSERT_TRUE(listener.waitFor("finish"));
    EXPECT_EQ(listener.count("failure"), 0);  // the cancelled run reported nothing
    EXPECT_EQ(listener.count("retry"), 0);
    EXPECT_EQ(cloud.requests("InitiateMultipartUpload").size(), 1u);
    EXPECT_EQ(cloud.upload(uploadId)->state, emulator::UploadState::Completed);
    const auto after = storedParts();
    for (const auto& [part, times] : beforeResume) EXPECT_EQ(after.at(part), 1) << "part " << part;
    EXPECT_EQ(cloud.objectBytes(bucket(), "up/resume.bin"), randomBytes(kSize, 40));
    EXPECT_EQ(openUploads(), 0u);
    // The upload was initiated by this run: nothing could be stored under it yet, so its parts were
    // listed only when each continuation had to find out which of them the service holds.
    EXPECT_EQ(cloud.requests("ListParts").size(), 2u);
}

// The object storage served over TLS by a CA of its own: verification stays on, so the engine
// refuses the service until it is given that CA.
class TlsMultipartUpload : public EngineCloudTest {
protected:
    TlsMultipartUpload() : EngineCloudTest(httpsOptions()) {}
    static emulator::EmulatorOptions httpsOptions() {
        emulator::EmulatorOptions options;
        options.https = true;
        return options;
    }
};

TEST_F(TlsMultipartUpload, ObjectStorageTrustsTheGivenCaFile) {
    const auto bytes = randomBytes(150 << 10, 60);
    // No retry bound: a refused certificate is a failure at once, not network trouble to retry for ever.
    ASSERT_TRUE(initSts(client));
    ASSERT_TRUE(addAndStart(makeFile("untrusted.bin", bytes), "up/untrusted.bin"));
    ASSERT_TRUE(listener.waitFor("failure"));
    EXPECT_EQ(listener.count("retry"), 0);
    EXPECT_FALSE(cloud.object(bucket(), "up/untrusted.bin"));
    EXPECT_TRUE(cloud.requests("InitiateMultipartUpload").empty());  // no request got through the handshake

    RecordingListener trusting;
    auto second = VODUploadClient::create(services());
    second->setRecordDirectoryPath(dir.file("records-ca"));
    second->setCaFile(cloud.caFile());
    ASSERT_TRUE(second->init(sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken, sts.Expiration, trusting.make()));
    ASSERT_TRUE(second->addFile(makeFile("trusted.bin", bytes), cloud.endpoint(), bucket(), "up/trusted.bin"));
    ASSERT_TRUE(second->start());
    ASSERT_TRUE(trusting.waitFor("finish"));
    EXPECT_EQ(trusting.count("failure"), 0);
    EXPECT_EQ(cloud.objectBytes(bucket(), "up/trusted.bin"), bytes);
    second->stop();
}
