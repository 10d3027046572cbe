// Operations of the client against the in-process emulator over real HTTP: each kind of credentials,
// the errors a user gets, and how operations wait: on the network without holding a thread, between
// attempts through the configured scheduler, and never past a cancel.
#include <dirent.h>
#include <unistd.h>

#include <filesystem>
#include <mutex>

#include "oss/oss_error.h"
#include "oss_fixture.h"
#include "support/net_faults.h"

namespace oss_test {

TEST_F(OssEmulatorTest, PutObjectFromFileAndMemoryWithEachKindOfCredentialsAndServiceErrorsInDetail) {
    std::string bytes;
    auto path = makeFile("photo.jpg", 300 * 1024 + 7, &bytes);
    int index = 0;
    for (auto provider : {rootKeys(), stsKeys(cloud.issueSts()), signerBlock()}) {
        auto client = makeClient({}, provider);
        auto key = "dir/photo " + std::to_string(index++) + ".jpg";
        auto put = on<OSSPutObjectRequest>(key);
        put->uploadingFileURL = "file://" + path;
        std::int64_t lastTotal = 0;
        put->uploadProgress = [&](std::int64_t, std::int64_t total, std::int64_t expected) {
            EXPECT_GT(total, lastTotal);
            EXPECT_EQ(expected, static_cast<std::int64_t>(bytes.size()));
            lastTotal = total;
        };
        auto task = waited(client->putObject(put));
        ASSERT_FALSE(task->error()) << task->error()->toString();
        EXPECT_EQ(lastTotal, static_cast<std::int64_t>(bytes.size()));
        EXPECT_EQ(task->result()->localCRC64ecma, task->result()->remoteCRC64ecma);
        EXPECT_EQ(cloud.objectBytes(bucket(), key), bytes);
    }
    auto client = makeClient();
    auto memory = putOf("note.txt", "hello");
    memory->contentType = "text/plain";
    ASSERT_FALSE(waited(client->putObject(memory))->error());
    auto headTask = waited(client->headObject(on<OSSHeadObjectRequest>("note.txt")));
    ASSERT_FALSE(headTask->error());
    EXPECT_EQ(headTask->result()->contentLength, 5);
    EXPECT_EQ(cloud.object(bucket(), "note.txt")->contentType, "text/plain");

    // Service errors carry the negated status and the document's code and message.
    auto sts = cloud.issueSts();
    cloud.expireToken(sts.SecurityToken);
    auto init = on<OSSInitMultipartUploadRequest>("v.mp4");
    auto expired = makeClient({}, stsKeys(sts));
    auto task = waited(expired->multipartUploadInit(init));
    ASSERT_EQ(codeOf(task), -403);
    EXPECT_EQ(task->error()->domain, kOSSServerErrorDomain);
    EXPECT_EQ(task->error()->userInfo["Code"], "SecurityTokenExpired");
    EXPECT_FALSE(task->error()->userInfo.value("Message", "").empty());

    auto wrong = makeClient({}, std::make_shared<OSSPlainTextAKSKPairCredentialProvider>(
                                    cloud.options().accessKeyId, "not-the-secret"));
    auto denied = waited(wrong->multipartUploadInit(init));
    EXPECT_EQ(codeOf(denied), -403);
    EXPECT_EQ(denied->error()->userInfo["Code"], "SignatureDoesNotMatch");
}

TEST_F(OssEmulatorTest, ConnectionResetIsANetworkErrorAndFiveHundredsAreRetried) {
    OSSClientConfiguration noRetry;
    noRetry.maxRetryCount = 0;
    auto client = makeClient(noRetry);
    auto put = putOf("r.bin", std::string(200 * 1024, 'x'));
    cloud.addFault(emulator::Fault::reset("PutObject", 1024));
    auto reset = waited(client->putObject(put));
    EXPECT_EQ(codeOf(reset), OSSClientErrorCodeNetworkError);
    EXPECT_EQ(reset->error()->domain, kOSSClientErrorDomain);

    auto retrying = makeClient();  // two retries by default, the body sent again from its start
    cloud.addFault(emulator::Fault::error("PutObject", 503, "ServiceUnavailable"));
    cloud.addFault(emulator::Fault::reset("PutObject", 4096));
    auto task = waited(retrying->putObject(put));
    ASSERT_FALSE(task->error()) << task->error()->toString();
    EXPECT_EQ(cloud.objectBytes(bucket(), "r.bin"), *put->uploadingData);
    EXPECT_EQ(cloud.firedCount("PutObject"), 3u);
}

TEST_F(OssEmulatorTest, BadInputGetsClearErrors) {
    auto client = makeClient();
    auto put = on<OSSPutObjectRequest>("k");
    put->uploadingFileURL = dir.path() + "/missing.bin";
    auto missing = waited(client->putObject(put));
    EXPECT_EQ(codeOf(missing), OSSClientErrorCodeFileCantRead);
    EXPECT_NE(missing->error()->description.find("missing.bin"), std::string::npos);

    put->uploadingFileURL = dir.path();
    auto directory = waited(client->putObject(put));
    EXPECT_EQ(codeOf(directory), OSSClientErrorCodeInvalidArgument);
    EXPECT_NE(directory->error()->description.find("directory"), std::string::npos);

    auto unreadable = makeFile("secret.bin", 10);
    std::filesystem::permissions(unreadable, std::filesystem::perms::none);
    put->uploadingFileURL = unreadable;
    if (::access(unreadable.c_str(), R_OK) != 0) {  // root reads anything: nothing to check then
        EXPECT_EQ(codeOf(waited(client->putObject(put))), OSSClientErrorCodeFileCantRead);
    }

    // A part for no object, or for a bucket the service could not have, is refused before sending.
    for (auto [bucketName, key] : {std::pair<std::string, std::string>{bucket(), ""}, {"", "k"}, {"Not_A_Bucket", "k"}}) {
        auto part = on<OSSUploadPartRequest>(key);
        part->bucketName = bucketName;
        part->uploadId = "0004B9894A22E5B1888A1E29F823****";
        part->partNumber = 1;
        part->uploadPartData = "bytes";
        EXPECT_EQ(codeOf(waited(client->uploadPart(part))), OSSClientErrorCodeInvalidArgument) << bucketName << "/" << key;
    }
    EXPECT_TRUE(cloud.requests("UploadPart").empty());

    for (const char* endpoint : {"", "https://", "http://:80"}) {
        OSSClient bad(endpoint, rootKeys());
        EXPECT_FALSE(bad.isValid());
        put->uploadingFileURL = makeFile("ok.bin", 10);
        auto task = waited(bad.putObject(put));
        EXPECT_EQ(codeOf(task), OSSClientErrorCodeInvalidArgument);
        EXPECT_NE(task->error()->description.find("no host"), std::string::npos) << endpoint;
    }
}

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

}  // namespace

TEST_F(OssEmulatorTest, OperationsWaitingOnASilentServiceHoldNoThreadAndEndAtCancel) {
    test::SilentServer silent;
    OSSClientConfiguration conf;
    conf.timeoutIntervalForRequest = 600;  // only the cancel ends them
    conf.httpClient = http;
    OSSClient client(silent.endpoint(), rootKeys(), conf);
    auto warmUp = on<OSSHeadObjectRequest>("warm-up");
    auto first = client.headObject(warmUp);
    ASSERT_TRUE(eventually([&] { return silent.connectionsAccepted() >= 1; }));
    const int before = threadCount();

    constexpr int kOperations = 40;
    std::vector<std::shared_ptr<OSSHeadObjectRequest>> requests;
    std::vector<OSSTask<OSSHeadObjectResult>::Ptr> tasks;
    for (int i = 0; i < kOperations; ++i) {
        requests.push_back(on<OSSHeadObjectRequest>("silent-" + std::to_string(i)));
        tasks.push_back(client.headObject(requests.back()));
    }
    ASSERT_TRUE(eventually([&] { return silent.connectionsAccepted() >= 8; }));  // the per-host connection cap
    EXPECT_LE(threadCount(), before + 2) << "a thread per waiting operation";
    for (const auto& t : tasks) EXPECT_FALSE(t->isCompleted());

    warmUp->cancel();
    for (auto& r : requests) r->cancel();
    ASSERT_TRUE(first->waitFor(kWait));
    for (const auto& t : tasks) {
        ASSERT_TRUE(t->waitFor(kWait));
        EXPECT_EQ(codeOf(t), OSSClientErrorCodeTaskCancelled);
    }
}

// Each retry is told before its wait, with its count and cause; the waits go through the configured
// scheduler, growing, and start again for the next operation.
TEST_F(OssEmulatorTest, RetriesAreToldAndWaitThroughTheConfiguredSchedulerWithGrowingDelays) {
    RecordingScheduler scheduler;
    std::vector<OSSRetryNotice> notices;
    OSSClientConfiguration conf;
    conf.retryScheduler = scheduler.make();
    conf.onRetry = [&](const OSSRetryNotice& notice) {
        std::lock_guard lock(scheduler.mutex);
        notices.push_back(notice);
    };
    auto told = [&] {
        std::lock_guard lock(scheduler.mutex);
        return notices;
    };
    auto client = makeClient(conf);

    cloud.addFault(emulator::Fault::error("PutObject", 503, "ServiceUnavailable"));
    cloud.addFault(emulator::Fault::error("PutObject", 502, "BadGateway"));
    auto recovered = waited(client->putObject(putOf("told.bin", std::string(2000, 'q'))));
    ASSERT_FALSE(recovered->error()) << recovered->error()->toString();
    EXPECT_EQ(cloud.objectBytes(bucket(), "told.bin"), std::string(2000, 'q'));
    EXPECT_EQ(scheduler.delays(), (std::vector<long>{200, 400}));
    auto first = told();
    ASSERT_EQ(first.size(), 2u);
    EXPECT_EQ(first[0].method, "PUT");
    EXPECT_EQ(first[0].objectKey, "told.bin");
    EXPECT_EQ(first[0].retry, 1u);
    EXPECT_EQ(first[1].retry, 2u);
    EXPECT_EQ(first[1].limit, 2u);
    EXPECT_EQ(first[0].delay, OSSClientConfiguration::retryDelay(0));
    EXPECT_EQ(first[1].delay, OSSClientConfiguration::retryDelay(1));
    EXPECT_EQ(retryCause(first[0].error), "HTTP 503 ServiceUnavailable");
    EXPECT_EQ(retryCause(first[1].error), "HTTP 502 BadGateway");
    EXPECT_EQ(retryCause(makeClientError(OSSClientErrorCodeNetworkError, "Network error: refused")),
              "Network error: refused");  // a client error is told in its own words

    for (int i = 0; i < 3; ++i) cloud.addFault(emulator::Fault::error("PutObject", 503, "ServiceUnavailable"));
    EXPECT_EQ(codeOf(waited(client->putObject(putOf("busy.bin", "x")))), -503);
    EXPECT_EQ(cloud.firedCount("PutObject"), 5u);  // the first attempt and the two retries, one request each
    EXPECT_EQ(scheduler.delays(), (std::vector<long>{200, 400, 200, 400}));

    // Errors that another attempt cannot change are neither retried nor told.
    cloud.addFault(emulator::Fault::error("PutObject", 403, "AccessDenied"));
    EXPECT_EQ(codeOf(waited(client->putObject(putOf("denied.bin", "x")))), -403);
    EXPECT_EQ(scheduler.delays().size(), 4u);
    EXPECT_EQ(told().size(), 4u);
}

TEST_F(OssEmulatorTest, ACancelOrTheClientGoingEndsAnOperationWaitingToRetry) {
    RecordingScheduler scheduler;
    scheduler.resume = false;
    OSSClientConfiguration conf;
    conf.retryScheduler = scheduler.make();
    auto client = makeClient(conf);
    for (int i = 0; i < 2; ++i) cloud.addFault(emulator::Fault::error("PutObject", 503, "ServiceUnavailable"));
    auto put = putOf("waiting.bin", std::string(100, 'q'));
    auto task = client->putObject(put);
    ASSERT_TRUE(eventually([&] { return scheduler.delays().size() == 1; }));
    EXPECT_FALSE(task->isCompleted());
    put->cancel();
    ASSERT_TRUE(task->waitFor(kWait));
    EXPECT_EQ(codeOf(task), OSSClientErrorCodeTaskCancelled);
    // The wait ending late must not send again nor complete the task twice.
    scheduler.held.at(0)();
    std::this_thread::sleep_for(milliseconds(200));
    EXPECT_EQ(cloud.requests("PutObject").size(), 1u);
    EXPECT_FALSE(cloud.object(bucket(), "waiting.bin"));

    auto orphan = client->putObject(putOf("orphan.bin", std::string(100, 'q')));
    ASSERT_TRUE(eventually([&] { return scheduler.delays().size() == 2; }));
    client.reset();  // returns once the operation has ended
    EXPECT_TRUE(orphan->isCompleted());
    EXPECT_EQ(codeOf(orphan), OSSClientErrorCodeTaskCancelled);
    scheduler.held.at(1)();
}

}  // namespace oss_test
