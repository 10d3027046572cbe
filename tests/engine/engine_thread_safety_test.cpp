// The engine used from several threads at once: a waiter woken by another thread, callers editing the
// queue together, and listeners calling back (run under ThreadSanitizer too).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "engine_test_support.h"
#include "foundation/crypto.h"

using namespace quorvane;
using namespace quorvane::test;
using namespace std::chrono_literals;

TEST(EngineSettling, AWaiterWakesWhenAnotherThreadMovesTheState) {
    // One file that waits between retries (nothing listens at its endpoint): Started, and still moving,
    // for as long as the test lets it.
    TempDir dir;
    auto client = VODUploadClient::create();
    client->setReportEnabled(false);
    client->init("LTAIretrying", "retrying-secret-0123", std::make_shared<VODUploadListener>());
    engineOf(*client).setRetryWait(std::chrono::minutes(10));
    writeFile(dir.file("data.bin"), std::string(200 * 1024, 'x'));
    client->addFile(dir.file("data.bin"), "http://127.0.0.1:1", "bucket", "data.bin");
    client->start();
    ASSERT_FALSE(client->waitUntilSettled(20ms));  // its file waits to be tried again
    std::atomic<bool> waiting{false};
    // The waiter's own limit is far beyond the test's: it can only finish in time by being woken.
    auto settled = std::async(std::launch::async, [&] {
        waiting = true;
        return client->waitUntilSettled(std::chrono::minutes(10));
    });
    while (!waiting) std::this_thread::yield();
    ASSERT_TRUE(client->pause());
    ASSERT_EQ(settled.wait_for(60s), std::future_status::ready);
    EXPECT_TRUE(settled.get());
    EXPECT_EQ(client->state(), VODClientState::Paused);
}

// Callers on several threads edit and read the queue at once; every edit lands exactly once (an
// unguarded list loses entries, tears, or trips the sanitizers).
TEST(EngineThreadSafety, CallersOnSeveralThreadsEditTheQueueWithoutLosingEntries) {
    auto client = VODUploadClient::create();
    client->init(std::make_shared<VODUploadListener>());
    client->setReportEnabled(false);
    constexpr int kPerThread = 400;
    std::atomic<int> deleted{0};
    auto adder = [&](int id) {
        for (int i = 0; i < kPerThread; ++i)
            ASSERT_TRUE(client->addFile("/nonexistent/" + std::to_string(id) + "-" + std::to_string(i) + ".bin",
                                        "http://127.0.0.1:1", "bucket", "key"));
    };
    std::thread a(adder, 1), b(adder, 2);
    std::thread c([&] {
        for (int i = 0; i < kPerThread; ++i) {
            auto files = client->listFiles();
            for (const auto& f : files) ASSERT_TRUE(f && !f->filePath.empty());
            if (!files.empty() && client->deleteFile(0)) ++deleted;
        }
    });
    a.join();
    b.join();
    c.join();
    EXPECT_EQ(client->listFiles().size(), static_cast<std::size_t>(2 * kPerThread - deleted));
    EXPECT_TRUE(client->clearFiles());
    EXPECT_TRUE(client->listFiles().empty());
}

// What a caller reads from its own thread while the queue works: the part size is the queue's field,
// and a file's address is taken whole, never half of one issued address and half of the next.
TEST(EngineReadsFromOtherThreads, PartSizeAndAddressAreNeverTorn) {
    TempDir dir;
    writeFile(dir.file("clip.mp4"), "movie");
    auto client = VODUploadClient::create();
    client->setUploadPartSize(2 * 1048576);
    EXPECT_EQ(client->partSizeFor(100 * 1048576LL), 2 * 1048576);
    EXPECT_EQ(client->partSizeFor(10LL << 30), (10LL << 30) / 4999);

    ASSERT_TRUE(client->addFile(dir.file("clip.mp4"), std::make_shared<VodInfo>()));
    auto entry = client->listFiles().at(0);
    auto address = [](int n) {
        const std::string tag = std::to_string(n);
        return foundation::base64Encode(
            Value{{"Endpoint", "oss-" + tag}, {"Bucket", "bucket-" + tag}, {"FileName", "object-" + tag}}.dump());
    };
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 0; i < 400; ++i) {
            client->setUploadPartSize(i % 2 ? 1048576 : 3 * 1048576);
            engineOf(*client).parseUploadAddress(address(i % 2), entry);
        }
        done = true;
    });
    int reads = 0;
    while (!done || reads == 0) {
        const auto part = client->partSizeFor(0);
        EXPECT_TRUE(part == 1048576 || part == 2 * 1048576 || part == 3 * 1048576) << part;
        const auto seen = entry->address();
        if (seen.bucket) {
            const std::string tag = seen.bucket->substr(seen.bucket->size() - 1);
            EXPECT_EQ(seen.endpoint, "oss-" + tag);
            EXPECT_EQ(seen.object, "object-" + tag);
        }
        ++reads;
    }
    writer.join();
    EXPECT_EQ(entry->address().object, "object-1");
}

// The options are the host's, not the queue's: reading or changing one while a listener callback holds
// the queue does not wait for it. A getter that went through the queue would sit out the callback's
// two minutes and the callback would never see the release. Once released, the callback (run on the
// client's own queue) calls the client back, which runs in place instead of waiting for that queue.
TEST(EngineReadsFromOtherThreads, OptionsAnswerWhileAListenerHoldsTheQueue) {
    TempDir dir;
    writeFile(dir.file("notes"), "text");
    auto client = VODUploadClient::create();
    auto listener = std::make_shared<VODUploadListener>();
    std::promise<void> entered, released;
    auto release = released.get_future().share();
    std::atomic<bool> sawRelease{false};
    std::pair<std::size_t, bool> calledBack{0, false};
    listener->failure = [&](const std::shared_ptr<UploadFileInfo>& file, const std::string&, const std::string&) {
        entered.set_value();
        sawRelease = release.wait_for(std::chrono::minutes(2)) == std::future_status::ready;
        calledBack = {client->listFiles().size(), file->state == UploadFileState::Failure && client->stop()};
    };
    client->init(listener);
    client->addFile(dir.file("notes"), nullptr);  // of no media type: fails on the queue at once
    // start waits for its step, the step for the callback: it returns once the callback does.
    auto started = std::async(std::launch::async, [&] { return client->start(); });
    entered.get_future().wait();

    client->setUploadPartSize(3 * 1048576);
    client->setTranscode(false);
    VODUploadOptions options = client->options();
    options.region = "cn-beijing";
    options.timeoutIntervalForRequest = -1;  // no time-out is no choice: the default
    client->setOptions(options);
    EXPECT_EQ(client->uploadPartSize(), 3 * 1048576);
    EXPECT_FALSE(client->transcode());
    EXPECT_EQ(client->region(), "cn-beijing");
    EXPECT_EQ(client->timeoutIntervalForRequest(), 30.0);
    EXPECT_EQ(client->partSizeFor(0), 3 * 1048576);
    released.set_value();
    ASSERT_EQ(started.wait_for(30s), std::future_status::ready) << "the callback waited for itself";
    EXPECT_TRUE(started.get());
    EXPECT_TRUE(sawRelease);
    EXPECT_EQ(calledBack, (std::pair<std::size_t, bool>{1, true}));
    EXPECT_EQ(client->state(), VODClientState::Stopped);
}
