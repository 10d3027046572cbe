// `quorvane upload` end to end: the built program against the local cloud it starts itself, and against
// an emulator this test runs (interrupt and resume, refused credentials), checking the stored bytes.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "cli/cli_fixture.h"
#include "support/net_faults.h"
#include "emulator/cloud_emulator.h"
#include "foundation/value.h"

namespace quorvane {
namespace {
namespace fs = std::filesystem;
using emulator::CloudEmulator;
using emulator::Fault;
using testing::CliProcess;
using namespace std::chrono_literals;

TEST_F(CliUpload, EmbeddedCloudStoresTheExactBytesOfEachFile) {
    auto data = makeFile("data.bin", 3 << 20, 1);
    auto clip = makeFile("clip.mp4", 3 << 20, 2);
    auto storage = (root_ / "cloud").string();
    auto process = run({"upload", "--json", "--storage", storage, data, clip});
    ASSERT_EQ(process->wait(kGenerous), 0) << process->errors();

    auto successes = events(*process, "success");
    ASSERT_EQ(successes.size(), 2u) << process->errors();
    EXPECT_EQ(events(*process, "started").size(), 2u);
    EXPECT_FALSE(events(*process, "progress").empty());
    for (const auto& event : events(*process, "verified")) EXPECT_TRUE(event["ok"].get<bool>()) << event.dump();
    auto summary = events(*process, "summary");
    ASSERT_EQ(summary.size(), 1u);
    EXPECT_EQ(summary[0]["uploaded"], 2);
    EXPECT_EQ(summary[0]["failed"], 0);

    // The stored objects, read back from the storage directory by a fresh emulator.
    emulator::EmulatorOptions options;
    options.storageDir = storage;
    CloudEmulator cloud(options);
    ASSERT_TRUE(cloud.start());
    for (const auto& success : successes) {
        std::string file = success["file"];
        EXPECT_EQ(success["bytes"], 3 << 20);
        auto bytes = cloud.objectBytes(success["bucket"], success["object"]);
        ASSERT_TRUE(bytes) << success.dump();
        EXPECT_TRUE(*bytes == contents_[file]) << file;
        // Media files are registered with the video service, other files go straight to the bucket.
        EXPECT_EQ(success["videoId"].is_string(), file == clip) << success.dump();
    }
}

// The dynamic loader names every library it loads on standard error when LD_DEBUG=files.
TEST_F(CliUpload, DeviceLibrariesStayUnloadedAndFFmpegLoadsOnlyForMediaFiles) {
    auto data = makeFile("plain.bin", 200 * 1024, 4);
    auto clip = makeFile("movie.mp4", 200 * 1024, 5);
    auto storage = (root_ / "cloud").string();
    auto plain = run({"upload", "--json", "--storage", storage, data}, {{"LD_DEBUG", "files"}});
    ASSERT_EQ(plain->wait(kGenerous), 0) << plain->errors();
    ASSERT_NE(plain->errors().find("file=libcurl"), std::string::npos) << "LD_DEBUG had no effect";
    for (const char* library : {"libvips", "libZXing", "libMagick", "libpoppler", "libavformat", "libavcodec"})
        EXPECT_EQ(plain->errors().find(library), std::string::npos) << library << " loaded to upload plain.bin";

    auto media = run({"upload", "--json", "--storage", storage, clip}, {{"LD_DEBUG", "files"}});
    ASSERT_EQ(media->wait(kGenerous), 0) << media->errors();
    EXPECT_NE(media->errors().find("file=libavformat"), std::string::npos);  // its facts are read
    EXPECT_EQ(media->errors().find("libvips"), std::string::npos);
}

TEST_F(CliUpload, BadUsageAndUnusableFilesExitTwoBeforeUploading) {
    auto file = makeFile("ok.bin", 1000, 3);
    fs::create_directories(root_ / "folder");
    struct Case {
        std::vector<std::string> args;
        std::string message;
    };
    std::vector<Case> cases = {
        {{"upload"}, "no file given"},
        {{"upload", "--no-such-option", file}, ""},
        {{"upload", "--part-size", "5", file}, ""},
        {{"upload", "--vod", "--oss", file}, ""},
        {{"upload", (root_ / "missing.bin").string()}, "no such file"},
        {{"upload", (root_ / "folder").string()}, "is a directory"},
        {{"upload", "--vod", file}, "--vod takes video"},
        {{"upload", "--endpoint", "ftp://x", "--bucket", "b", "--key-id", "k", "--secret", "s", file}, "bad endpoint"},
        {{"upload", "--key-id", "k", file}, "--key-id and --secret"},
    };
    for (const auto& c : cases) {
        auto process = run(c.args);
        EXPECT_EQ(process->wait(kGenerous), 2) << "'" << c.args.back() << "'";
        EXPECT_NE(process->errors().find(c.message), std::string::npos) << process->errors();
    }
    // Nothing reached a cloud: no storage was even made.
    EXPECT_FALSE(fs::exists(root_ / "cache" / "quorvane" / "cloud"));
}

TEST_F(CliUploadToService, InterruptPausesAndTheSameCommandResumesWithoutResendingStoredParts) {
    const std::size_t size = 8 * kPart;
    auto file = makeFile("big.bin", size, 4);
    // The first parts go through at once, the later ones stall, so the interrupt lands mid-file.
    interruptMidway(file, 4);
    if (HasFatalFailure()) return;
    const auto receivedBefore = cloud_.uploadPartBytesReceived();
    auto second = run(serviceArgs(file, sts_.AccessKeyId));
    ASSERT_EQ(second->wait(kGenerous), 0) << second->errors();
    auto resuming = events(*second, "resuming");
    ASSERT_EQ(resuming.size(), 1u);
    const auto stored = resuming[0]["uploaded"].get<std::uint64_t>();
    EXPECT_GE(stored, kPart);
    EXPECT_EQ(resuming[0]["total"], size);
    // At most the missing parts went up the second time (parts the service stored after the interrupt
    // are found by listing them and not sent either).
    EXPECT_LE(cloud_.uploadPartBytesReceived() - receivedBefore, size - stored);
    ASSERT_EQ(events(*second, "success").size(), 1u);
    auto bytes = cloud_.objectBytes(cloud_.options().bucket, "big.bin");
    ASSERT_TRUE(bytes);
    EXPECT_TRUE(*bytes == contents_[file]);
}

// A store that takes connections and never answers: the user hears of it before the first idle time-out
// ends, each request left unanswered is one of the file's retries, and the file fails once they are
// spent: one lookup and two sends of the object, nothing more.
TEST_F(CliUpload, ASilentStoreIsShownWithinSecondsAndCostsOnlyTheRetriesGiven) {
    test::SilentServer silent;
    auto file = makeFile("quiet.bin", 200000, 9);
    auto process = run({"upload", "--json", "--oss", "--endpoint", silent.endpoint(), "--region", "cn-hangzhou",
                        "--bucket", "quiet-bucket", "--key-id", "AKIDsilenttest", "--secret", "silent-secret-text",
                        "--idle-timeout", "10", "--retries", "2", file});
    EXPECT_EQ(process->wait(kGenerous), 1) << process->errors();
    std::vector<std::string> order;
    for (const auto& line : process->lines())
        if (auto event = foundation::parseJson(line); event && event->is_object())
            order.push_back(event->value("event", ""));
    // Told while the lookup waits, before any retry.
    auto firstWait = std::find(order.begin(), order.end(), "waiting");
    ASSERT_NE(firstWait, order.end());
    EXPECT_LT(firstWait - order.begin(), std::find(order.begin(), order.end(), "retry") - order.begin());
    auto waits = events(*process, "waiting");
    EXPECT_GE(waits.at(0)["seconds"].get<int>(), 5);
    EXPECT_EQ(waits.at(0)["file"], file);

    auto retries = events(*process, "retry");
    auto requestRetries = events(*process, "requestRetry");
    ASSERT_EQ(retries.size(), 1u);  // the lookup's
    ASSERT_EQ(requestRetries.size(), 1u);
    EXPECT_EQ(retries[0]["limit"], 2);
    EXPECT_EQ(requestRetries[0]["count"], 2);
    EXPECT_EQ(requestRetries[0]["limit"], 2);
    auto failures = events(*process, "failure");
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0]["code"], "RetryLimit");
    // One more connection may open if the last retry's short wait ends before the file's end stops it.
    EXPECT_GE(silent.connectionsAccepted(), 3);
    EXPECT_LE(silent.connectionsAccepted(), 4);
}

// Nothing waits on the run's telemetry, yet its last event has reached the log service when the process ends.
TEST_F(CliUploadToService, TheLastEventOfARunReachesTheLogServiceBeforeTheProcessEnds) {
    auto file = makeFile("reported.bin", kPart / 2, 7);
    auto up = run(serviceArgs(file, sts_.AccessKeyId), {{"QUORVANE_LOG_SERVICE_ENDPOINT", cloud_.endpoint()}});
    ASSERT_EQ(up->wait(kGenerous), 0) << up->errors();
    std::size_t succeeded = 0;
    for (const auto& event : cloud_.logEvents()) succeeded += event.params.value("e", "") == "20003";
    EXPECT_EQ(succeeded, 1u);
}

// A run whose part listing fails must not cost the record its parts, and the summary of the run that
// finishes counts the bytes it sent, not the file's size.
TEST_F(CliUploadToService, SummaryCountsTheBytesSentAfterARunWhoseListingFailed) {
    const std::size_t size = 8 * kPart;
    auto file = makeFile("listed.bin", size, 6);
    interruptMidway(file, 3);
    if (HasFatalFailure()) return;

    for (int i = 0; i < 40; ++i) cloud_.addFault(Fault::error("ListParts", 503, "ServiceUnavailable"));
    auto second = run(serviceArgs(file, sts_.AccessKeyId));
    EXPECT_EQ(second->wait(kGenerous), 1) << second->errors();
    cloud_.clearFaults();

    const auto receivedBefore = cloud_.uploadPartBytesReceived();
    auto third = run(serviceArgs(file, sts_.AccessKeyId));
    ASSERT_EQ(third->wait(kGenerous), 0) << third->errors();
    const auto sent = cloud_.uploadPartBytesReceived() - receivedBefore;
    auto resuming = events(*third, "resuming");
    ASSERT_EQ(resuming.size(), 1u);
    EXPECT_EQ(resuming[0]["uploaded"].get<std::uint64_t>(), size - sent);
    auto summary = events(*third, "summary");
    ASSERT_EQ(summary.size(), 1u);
    EXPECT_EQ(summary[0]["bytes"].get<std::uint64_t>(), sent);
    EXPECT_LT(sent, size);
    EXPECT_EQ(cloud_.objectBytes(cloud_.options().bucket, "listed.bin"), contents_[file]);

    // The same file under another key has nothing stored: no "resuming", every byte counted.
    auto other = serviceArgs(file, sts_.AccessKeyId);
    other.insert(other.end() - 1, {"--key", "elsewhere.bin"});
    auto fourth = run(other);
    ASSERT_EQ(fourth->wait(kGenerous), 0) << fourth->errors();
    EXPECT_TRUE(events(*fourth, "resuming").empty());
    EXPECT_EQ(events(*fourth, "summary").at(0)["bytes"].get<std::uint64_t>(), size);
}

}  // namespace
}  // namespace quorvane
