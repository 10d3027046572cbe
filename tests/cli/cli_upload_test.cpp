// `quorvane upload` end to end: the built program against the local cloud it starts itself, and against
// an emulator this test runs (interrupt and resume, refused credentials), checking the stored bytes.
#include <gtest/gtest.h>

#include "cli/cli_fixture.h"
#include "foundation/temp_files.h"
#include "support/net_faults.h"

namespace quorvane {
namespace {
using emulator::CloudEmulator;
using emulator::Fault;

// The dynamic loader names every library it loads on standard error when LD_DEBUG=files: device
// libraries stay unloaded, FFmpeg loads only for media files.
TEST_F(CliUpload, EmbeddedCloudStoresTheExactBytesOfEachFileLoadingOnlyWhatItNeeds) {
    auto storage = (root_ / "cloud").string();
    auto plain = ran(0, {"upload", "--json", "--storage", storage, makeFile("plain.bin", 200 * 1024, 4)},
                     {{"LD_DEBUG", "files"}});
    ASSERT_NE(plain->errors().find("file=libcurl"), std::string::npos) << "LD_DEBUG had no effect";
    for (const char* library : {"libvips", "libZXing", "libMagick", "libpoppler", "libavformat", "libavcodec"})
        EXPECT_EQ(plain->errors().find(library), std::string::npos) << library << " loaded to upload plain.bin";

    auto data = makeFile("data.bin", 3 << 20, 1);
    auto clip = makeFile("clip.mp4", 3 << 20, 2);
    auto process = ran(0, {"upload", "--json", "--storage", storage, data, clip}, {{"LD_DEBUG", "files"}});
    EXPECT_NE(process->errors().find("file=libavformat"), std::string::npos);  // its facts are read
    EXPECT_EQ(process->errors().find("libvips"), std::string::npos);
    auto successes = events(*process, "success");
    ASSERT_EQ(successes.size(), 2u);
    EXPECT_EQ(events(*process, "started").size(), 2u);
    EXPECT_FALSE(events(*process, "progress").empty());
    for (const auto& event : events(*process, "verified")) EXPECT_TRUE(event["ok"].get<bool>()) << event.dump();
    auto summary = only(*process, "summary");
    EXPECT_EQ(summary["uploaded"], 2);
    EXPECT_EQ(summary["failed"], 0);

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
    cloud.stop();

    // Each run serves where the last one did, so an interrupted upload's record still names this
    // service; a port taken meanwhile only moves the next run.
    auto cloudAt = [](const CliProcess& run) { return only(run, "note").value("message", ""); };
    EXPECT_EQ(cloudAt(*plain), cloudAt(*process));
    emulator::EmulatorOptions squatter;
    squatter.port = std::stoi(foundation::readFile(storage + "/port").value_or("0"));
    CloudEmulator taken(squatter);
    ASSERT_TRUE(taken.start());
    auto moved = ran(0, {"upload", "--json", "--storage", storage, makeFile("moved.bin", 1000, 5)});
    EXPECT_NE(cloudAt(*moved), cloudAt(*plain));
    EXPECT_EQ(only(*moved, "summary")["uploaded"], 1);
}

// An interrupt pauses the upload. A run whose part listing fails must not cost the record its parts;
// the same command then resumes without resending stored parts, and its summary counts the bytes it
// sent, not the file's size.
TEST_F(CliUploadToService, InterruptPausesAndTheSameCommandResumesWithoutResendingStoredParts) {
    const std::size_t size = 8 * kPart;
    auto file = makeFile("big.bin", size, 4);
    // The first parts go through at once, the later ones stall, so the interrupt lands mid-file.
    interruptMidway(file, 4);
    if (HasFatalFailure()) return;
    for (int i = 0; i < 40; ++i) cloud_.addFault(Fault::error("ListParts", 503, "ServiceUnavailable"));
    ran(1, serviceArgs(file, sts_.AccessKeyId));
    cloud_.clearFaults();

    const auto receivedBefore = cloud_.uploadPartBytesReceived();
    auto resumed = ran(0, serviceArgs(file, sts_.AccessKeyId));
    const auto sent = cloud_.uploadPartBytesReceived() - receivedBefore;
    auto resuming = only(*resumed, "resuming");
    // Only the missing parts went up (parts the service stored after the interrupt are found by listing
    // them and not sent either).
    EXPECT_GE(resuming["uploaded"], kPart);
    EXPECT_EQ(resuming["uploaded"], size - sent);
    EXPECT_EQ(resuming["total"], size);
    EXPECT_EQ(only(*resumed, "summary")["bytes"], sent);
    EXPECT_LT(sent, size);
    EXPECT_EQ(events(*resumed, "success").size(), 1u);
    EXPECT_EQ(cloud_.objectBytes(cloud_.options().bucket, "big.bin"), contents_[file]);

    // The same file under another key has nothing stored: no "resuming", every byte counted. Nothing
    // waits on the run's telemetry, yet its last event has reached the log service when the process ends.
    auto other = serviceArgs(file, sts_.AccessKeyId);
    other.insert(other.end() - 1, {"--key", "elsewhere.bin"});
    auto fresh = ran(0, other, {{"QUORVANE_LOG_SERVICE_ENDPOINT", cloud_.endpoint()}});
    EXPECT_TRUE(events(*fresh, "resuming").empty());
    EXPECT_EQ(only(*fresh, "summary")["bytes"], size);
    std::size_t succeeded = 0;
    for (const auto& event : cloud_.logEvents()) succeeded += event.params.value("e", "") == "20003";
    EXPECT_EQ(succeeded, 1u);
}

// A store that takes connections and never answers: the user hears of it before the first idle time-out
// ends, each request left unanswered is one of the file's retries, and the file fails once they are
// spent: one lookup and two sends of the object, nothing more.
TEST_F(CliUpload, ASilentStoreIsShownWithinSecondsAndCostsOnlyTheRetriesGiven) {
    test::SilentServer silent;
    auto file = makeFile("quiet.bin", 200000, 9);
    auto process = ran(1, {"upload", "--json", "--oss", "--endpoint", silent.endpoint(), "--region", "cn-hangzhou",
                           "--bucket", "quiet-bucket", "--key-id", "AKIDsilenttest", "--secret", "silent-secret-text",
                           "--idle-timeout", "10", "--retries", "2", file});
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

    EXPECT_EQ(only(*process, "retry")["limit"], 2);  // the lookup's
    auto requestRetry = only(*process, "requestRetry");
    EXPECT_EQ(requestRetry["count"], 2);
    EXPECT_EQ(requestRetry["limit"], 2);
    EXPECT_EQ(only(*process, "failure")["code"], "RetryLimit");
    // One more connection may open if the last retry's short wait ends before the file's end stops it.
    EXPECT_GE(silent.connectionsAccepted(), 3);
    EXPECT_LE(silent.connectionsAccepted(), 4);
}

}  // namespace
}  // namespace quorvane
