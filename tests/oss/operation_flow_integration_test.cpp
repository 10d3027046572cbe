// How operations wait: on the network without holding a thread, between attempts through the
// configured scheduler, and never past a cancel; and what a resumed upload may trust.
#include <dirent.h>
#include <sys/stat.h>

#include <filesystem>
#include <mutex>
#include <vector>

#include "oss/oss_checkpoint.h"
#include "oss_fixture.h"
#include "support/net_faults.h"

namespace oss_test {
namespace {

int threadCount() {
    int count = 0;
    if (DIR* dir = opendir("/proc/self/task")) {
        while (auto* entry = readdir(dir))
            if (entry->d_name[0] != '.') ++count;
        closedir(dir);
    }
    return count;
}

// A scheduler that records each wait; it resumes at once, or never (the test keeps the resumes).
struct RecordingScheduler {
    std::mutex mutex;
    std::vector<long> delaysMs;
    std::vector<std::function<void()>> held;
    bool resume = true;

    std::function<void(milliseconds, std::function<void()>)> make() {
        return [this](milliseconds delay, std::function<void()> then) {
            {
                std::lock_guard lock(mutex);
                delaysMs.push_back(static_cast<long>(delay.count()));
                if (!resume) {
                    held.push_back(std::move(then));
                    return;
                }
            }
            then();
        };
    }
    std::vector<long> delays() {
        std::lock_guard lock(mutex);
        return delaysMs;
    }
};

std::shared_ptr<OSSPutObjectRequest> putOf(const std::string& bucket, const std::string& key, std::size_t size) {
    auto put = std::make_shared<OSSPutObjectRequest>();
    put->bucketName = bucket;
    put->objectKey = key;
    put->uploadingData = std::string(size, 'q');
    return put;
}

}  // namespace

TEST_F(OssEmulatorTest, OperationsWaitingOnASilentServiceHoldNoThreadAndEndAtCancel) {
    test::SilentServer silent;
    OSSClientConfiguration conf;
    conf.timeoutIntervalForRequest = 600;  // only the cancel ends them
    conf.httpClient = http;
    OSSClient client(silent.endpoint(), rootKeys(), conf);
    auto warmUp = std::make_shared<OSSHeadObjectRequest>();
    warmUp->bucketName = bucket();
    warmUp->objectKey = "warm-up";
    auto first = client.headObject(warmUp);
    ASSERT_TRUE(eventually([&] { return silent.connectionsAccepted() >= 1; }));
    const int before = threadCount();

    constexpr int kOperations = 40;
    std::vector<std::shared_ptr<OSSHeadObjectRequest>> requests;
    std::vector<OSSTask<OSSHeadObjectResult>::Ptr> tasks;
    for (int i = 0; i < kOperations; ++i) {
        auto head = std::make_shared<OSSHeadObjectRequest>();
        head->bucketName = bucket();
        head->objectKey = "silent-" + std::to_string(i);
        requests.push_back(head);
        tasks.push_back(client.headObject(head));
    }
    ASSERT_TRUE(eventually([&] { return silent.connectionsAccepted() >= 8; }));  // the per-host connection cap
    EXPECT_LE(threadCount(), before + 2) << "a thread per waiting operation";
    for (const auto& t : tasks) EXPECT_FALSE(t->isCompleted());

    warmUp->cancel();
    for (auto& r : requests) r->cancel();
    ASSERT_TRUE(first->waitFor(kWait));
    for (const auto& t : tasks) {
        ASSERT_TRUE(t->waitFor(kWait));
        ASSERT_TRUE(t->error());
        EXPECT_EQ(t->error()->code, OSSClientErrorCodeTaskCancelled);
    }
}

TEST_F(OssEmulatorTest, RetriesWaitThroughTheConfiguredSchedulerWithGrowingDelays) {
    RecordingScheduler scheduler;
    OSSClientConfiguration conf;
    conf.retryScheduler = scheduler.make();
    auto client = makeClient(conf);

    for (int i = 0; i < 3; ++i) cloud.addFault(emulator::Fault::error("PutObject", 503, "ServiceUnavailable"));
    auto failed = waited(client->putObject(putOf(bucket(), "busy.bin", 1000)));
    ASSERT_TRUE(failed->error());
    EXPECT_EQ(failed->error()->code, -503);
    EXPECT_EQ(cloud.firedCount("PutObject"), 3u);  // the first attempt and the two retries, one request each
    EXPECT_EQ(scheduler.delays(), (std::vector<long>{200, 400}));

    cloud.addFault(emulator::Fault::error("PutObject", 502, "BadGateway"));
    auto put = putOf(bucket(), "busy-once.bin", 2000);
    auto recovered = waited(client->putObject(put));
    ASSERT_FALSE(recovered->error()) << recovered->error()->toString();
    EXPECT_EQ(cloud.objectBytes(bucket(), "busy-once.bin"), *put->uploadingData);
    EXPECT_EQ(scheduler.delays(), (std::vector<long>{200, 400, 200}));

    // Errors that another attempt cannot change are not retried.
    cloud.addFault(emulator::Fault::error("PutObject", 403, "AccessDenied"));
    auto denied = waited(client->putObject(putOf(bucket(), "denied.bin", 10)));
    ASSERT_TRUE(denied->error());
    EXPECT_EQ(scheduler.delays().size(), 3u);
}

TEST_F(OssEmulatorTest, ACancelEndsAnOperationWaitingToRetry) {
    RecordingScheduler scheduler;
    scheduler.resume = false;
    OSSClientConfiguration conf;
    conf.retryScheduler = scheduler.make();
    auto client = makeClient(conf);
    cloud.addFault(emulator::Fault::error("PutObject", 503, "ServiceUnavailable"));
    auto put = putOf(bucket(), "waiting.bin", 100);
    auto task = client->putObject(put);
    ASSERT_TRUE(eventually([&] { return scheduler.delays().size() == 1; }));
    EXPECT_FALSE(task->isCompleted());
    put->cancel();
    ASSERT_TRUE(task->waitFor(kWait));
    ASSERT_TRUE(task->error());
    EXPECT_EQ(task->error()->code, OSSClientErrorCodeTaskCancelled);
    // The wait ending late must not send again nor complete the task twice.
    for (auto& resume : scheduler.held) resume();
    std::this_thread::sleep_for(milliseconds(200));
    EXPECT_EQ(cloud.requests("PutObject").size(), 1u);
    EXPECT_FALSE(cloud.object(bucket(), "waiting.bin"));
}

TEST_F(OssEmulatorTest, ClientGoneWhileAnOperationWaitsToRetryEndsItCancelled) {
    RecordingScheduler scheduler;
    scheduler.resume = false;
    OSSClientConfiguration conf;
    conf.retryScheduler = scheduler.make();
    auto client = makeClient(conf);
    cloud.addFault(emulator::Fault::error("PutObject", 503, "ServiceUnavailable"));
    auto task = client->putObject(putOf(bucket(), "orphan.bin", 100));
    ASSERT_TRUE(eventually([&] { return scheduler.delays().size() == 1; }));
    client.reset();  // returns once the operation has ended
    EXPECT_TRUE(task->isCompleted());
    ASSERT_TRUE(task->error());
    EXPECT_EQ(task->error()->code, OSSClientErrorCodeTaskCancelled);
    for (auto& resume : scheduler.held) resume();
}

}  // namespace oss_test
