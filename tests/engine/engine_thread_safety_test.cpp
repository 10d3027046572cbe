// The engine used from several threads at once: waiting for the queue to settle, and the current file
// read on the caller's thread while another thread replaces it (run under ThreadSanitizer too).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "engine_test_support.h"

using namespace quorvane;
using namespace quorvane::test;
using namespace std::chrono_literals;

namespace {

// A client whose queue halted on a file of no media type: Started, with nothing left to move it on.
std::shared_ptr<VODUploadClient> haltedClient(const TempDir& dir) {
    writeFile(dir.file("notes"), "text");
    auto client = VODUploadClient::create();
    client->init(std::make_shared<VODUploadListener>());
    client->addFile(dir.file("notes"), nullptr);
    client->start();
    return client;
}

}  // namespace

TEST(EngineSettling, AnswersAtOnceOutsideStarted) {
    auto client = VODUploadClient::create();
    client->init(std::make_shared<VODUploadListener>());
    EXPECT_TRUE(client->waitUntilSettled(0ms));  // Idle

    ASSERT_TRUE(client->start());  // an empty queue finishes at once
    EXPECT_EQ(client->state(), VODClientState::Finished);
    EXPECT_TRUE(client->waitUntilSettled(0ms));
}

TEST(EngineSettling, AHaltedQueueNeverSettlesByItself) {
    TempDir dir;
    auto client = haltedClient(dir);
    ASSERT_EQ(client->state(), VODClientState::Started);
    EXPECT_FALSE(client->waitUntilSettled(20ms));
    ASSERT_TRUE(client->stop());
    EXPECT_TRUE(client->waitUntilSettled(0ms));
}

TEST(EngineSettling, AWaiterWakesWhenAnotherThreadMovesTheState) {
    TempDir dir;
    auto client = haltedClient(dir);
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

// The worker replaces the current file after every finished upload while the caller's operations
// read it; each reader must see either file whole (a torn pointer crashes or trips the sanitizer).
TEST(EngineThreadSafety, CurrentFileIsReplacedWhileTheCallerClearsTheQueue) {
    auto client = VODUploadClient::create();
    client->init(std::make_shared<VODUploadListener>());
    auto uploading = std::make_shared<UploadFileInfo>();
    uploading->filePath = "/nonexistent/clip.mp4";
    uploading->state = UploadFileState::Uploading;

    std::atomic<bool> done{false};
    std::thread worker([&] {
        while (!done) {
            VODUploadClientTestAccess::setCur(*client, uploading);
            VODUploadClientTestAccess::setCur(*client, nullptr);
        }
    });
    for (int i = 0; i < 20000; ++i) ASSERT_TRUE(client->clearFiles());
    done = true;
    worker.join();
    EXPECT_EQ(uploading->state, UploadFileState::Uploading);  // no request ran, so nothing changed it
    EXPECT_EQ(uploading.use_count(), 1);                      // every copy the readers took was released
}
