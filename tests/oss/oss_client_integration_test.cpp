// Single-request operations against the in-process emulator over real HTTP.
#include <filesystem>
#include <mutex>

#include <unistd.h>

#include "oss/oss_error.h"
#include "oss_fixture.h"

namespace oss_test {

TEST_F(OssEmulatorTest, PutObjectFromFileAndMemoryWithEachKindOfCredentials) {
    std::string bytes;
    auto path = makeFile("photo.jpg", 300 * 1024 + 7, &bytes);
    auto sts = cloud.issueSts();
    auto federation = std::make_shared<OSSFederationCredentialProvider>([sts] {
        auto t = std::make_shared<OSSFederationToken>();
        t->tAccessKey = sts.AccessKeyId;
        t->tSecretKey = sts.AccessKeySecret;
        t->tToken = sts.SecurityToken;
        t->expirationTimeInGMTFormat = sts.Expiration;
        return t;
    });
    auto secret = cloud.options().accessKeySecret, keyId = cloud.options().accessKeyId;
    auto custom = std::make_shared<OSSCustomSignerCredentialProvider>(
        [=](const std::string& content, Error*) -> std::optional<std::string> {
            return "OSS " + keyId + ":" + *OSSUtil::calBase64Sha1WithData(content, secret);
        });
    int index = 0;
    for (auto provider : {rootKeys(), std::shared_ptr<OSSCredentialProvider>(federation),
                          std::shared_ptr<OSSCredentialProvider>(custom)}) {
        auto client = makeClient({}, provider);
        auto key = "dir/photo " + std::to_string(index++) + ".jpg";
        auto put = std::make_shared<OSSPutObjectRequest>();
        put->bucketName = bucket();
        put->objectKey = key;
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
    auto memory = std::make_shared<OSSPutObjectRequest>();
    memory->bucketName = bucket();
    memory->objectKey = "note.txt";
    memory->uploadingData = "hello";
    memory->contentType = "text/plain";
    ASSERT_FALSE(waited(client->putObject(memory))->error());
    auto head = std::make_shared<OSSHeadObjectRequest>();
    head->bucketName = bucket();
    head->objectKey = "note.txt";
    auto headTask = waited(client->headObject(head));
    ASSERT_FALSE(headTask->error());
    EXPECT_EQ(headTask->result()->contentLength, 5);
    EXPECT_EQ(cloud.object(bucket(), "note.txt")->contentType, "text/plain");
}

TEST_F(OssEmulatorTest, ServiceErrorsCarryTheNegatedStatusAndTheDocumentsCodeAndMessage) {
    auto sts = cloud.issueSts();
    cloud.expireToken(sts.SecurityToken);
    auto federation = std::make_shared<OSSFederationCredentialProvider>([sts] {
        auto t = std::make_shared<OSSFederationToken>();
        t->tAccessKey = sts.AccessKeyId;
        t->tSecretKey = sts.AccessKeySecret;
        t->tToken = sts.SecurityToken;
        return t;
    });
    auto client = makeClient({}, federation);
    auto init = std::make_shared<OSSInitMultipartUploadRequest>();
    init->bucketName = bucket();
    init->objectKey = "v.mp4";
    auto task = waited(client->multipartUploadInit(init));
    ASSERT_TRUE(task->error());
    EXPECT_EQ(task->error()->domain, kOSSServerErrorDomain);
    EXPECT_EQ(task->error()->code, -403);
    EXPECT_EQ(task->error()->userInfo["Code"], "SecurityTokenExpired");
    EXPECT_FALSE(task->error()->userInfo.value("Message", "").empty());

    auto wrong = makeClient({}, std::make_shared<OSSPlainTextAKSKPairCredentialProvider>(
                                    cloud.options().accessKeyId, "not-the-secret"));
    auto denied = waited(wrong->multipartUploadInit(init));
    ASSERT_TRUE(denied->error());
    EXPECT_EQ(denied->error()->code, -403);
    EXPECT_EQ(denied->error()->userInfo["Code"], "SignatureDoesNotMatch");
}

TEST_F(OssEmulatorTest, ConnectionResetIsANetworkErrorAndFiveHundredsAreRetried) {
    OSSClientConfiguration noRetry;
    noRetry.maxRetryCount = 0;
    auto client = makeClient(noRetry);
    auto put = std::make_shared<OSSPutObjectRequest>();
    put->bucketName = bucket();
    put->objectKey = "r.bin";
    put->uploadingData = std::string(200 * 1024, 'x');
    cloud.addFault(emulator::Fault::reset("PutObject", 1024));
    auto reset = waited(client->putObject(put));
    ASSERT_TRUE(reset->error());
    EXPECT_EQ(reset->error()->domain, kOSSClientErrorDomain);
    EXPECT_EQ(reset->error()->code, OSSClientErrorCodeNetworkError);

    auto retrying = makeClient();  // two retries by default, the body sent again from its start
    cloud.addFault(emulator::Fault::error("PutObject", 503, "ServiceUnavailable"));
    cloud.addFault(emulator::Fault::reset("PutObject", 4096));
    auto task = waited(retrying->putObject(put));
    ASSERT_FALSE(task->error()) << task->error()->toString();
    EXPECT_EQ(cloud.objectBytes(bucket(), "r.bin"), *put->uploadingData);
    EXPECT_EQ(cloud.firedCount("PutObject"), 3u);
}

TEST_F(OssEmulatorTest, EachRetryIsToldBeforeItsWaitWithItsCountAndCause) {
    std::mutex mutex;
    std::vector<OSSRetryNotice> notices;
    OSSClientConfiguration told;
    told.onRetry = [&](const OSSRetryNotice& notice) {
        std::lock_guard lock(mutex);
        notices.push_back(notice);
    };
    auto client = makeClient(told);
    auto put = std::make_shared<OSSPutObjectRequest>();
    put->bucketName = bucket();
    put->objectKey = "told.bin";
    put->uploadingData = "bytes";
    cloud.addFault(emulator::Fault::error("PutObject", 503, "ServiceUnavailable"));
    cloud.addFault(emulator::Fault::error("PutObject", 502, "BadGateway"));
    auto toldSoFar = [&] {
        std::lock_guard lock(mutex);
        return notices;
    };
    auto task = waited(client->putObject(put));
    ASSERT_FALSE(task->error()) << task->error()->toString();
    auto first = toldSoFar();
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

    // A client error is told in its own words; a failure that is not retried is not told.
    EXPECT_EQ(retryCause(makeClientError(OSSClientErrorCodeNetworkError, "Network error: refused")),
              "Network error: refused");
    cloud.addFault(emulator::Fault::error("PutObject", 403, "AccessDenied"));
    EXPECT_TRUE(waited(client->putObject(put))->error());
    EXPECT_EQ(toldSoFar().size(), 2u);
}

TEST_F(OssEmulatorTest, MultipartStepsListPagesAndAbortEndsTheUpload) {
    auto client = makeClient();
    auto init = std::make_shared<OSSInitMultipartUploadRequest>();
    init->bucketName = bucket();
    init->objectKey = "m.bin";
    auto id = waited(client->multipartUploadInit(init))->result()->uploadId;
    ASSERT_FALSE(id.empty());
    for (int n = 1; n <= 3; ++n) {
        auto part = std::make_shared<OSSUploadPartRequest>();
        part->bucketName = bucket();
        part->objectKey = "m.bin";
        part->uploadId = id;
        part->partNumber = n;
        part->uploadPartData = std::string(100 * 1024, static_cast<char>('a' + n));
        auto done = waited(client->uploadPart(part));
        ASSERT_FALSE(done->error()) << done->error()->toString();
        EXPECT_FALSE(done->result()->eTag.empty());
    }
    auto list = std::make_shared<OSSListPartsRequest>();
    list->bucketName = bucket();
    list->objectKey = "m.bin";
    list->uploadId = id;
    list->maxParts = 2;
    auto listed = waited(client->listParts(list));
    ASSERT_FALSE(listed->error()) << listed->error()->toString();
    ASSERT_EQ(listed->result()->parts.size(), 3u);
    EXPECT_EQ(listed->result()->parts[2].partNum, 3);
    EXPECT_EQ(cloud.requests("ListParts").size(), 2u);  // two pages

    auto abort = std::make_shared<OSSAbortMultipartUploadRequest>();
    abort->bucketName = bucket();
    abort->objectKey = "m.bin";
    abort->uploadId = id;
    ASSERT_FALSE(waited(client->abortMultipartUpload(abort))->error());
    auto gone = waited(client->listParts(list));
    ASSERT_TRUE(gone->error());
    EXPECT_EQ(gone->error()->code, -404);
    EXPECT_EQ(gone->error()->userInfo["Code"], "NoSuchUpload");
}

TEST_F(OssEmulatorTest, BadInputGetsClearErrors) {
    auto client = makeClient();
    auto put = std::make_shared<OSSPutObjectRequest>();
    put->bucketName = bucket();
    put->objectKey = "k";
    put->uploadingFileURL = dir.path() + "/missing.bin";
    auto missing = waited(client->putObject(put));
    ASSERT_TRUE(missing->error());
    EXPECT_EQ(missing->error()->code, OSSClientErrorCodeFileCantRead);
    EXPECT_NE(missing->error()->description.find("missing.bin"), std::string::npos);

    put->uploadingFileURL = dir.path();
    auto directory = waited(client->putObject(put));
    ASSERT_TRUE(directory->error());
    EXPECT_EQ(directory->error()->code, OSSClientErrorCodeInvalidArgument);
    EXPECT_NE(directory->error()->description.find("directory"), std::string::npos);

    auto unreadable = makeFile("secret.bin", 10);
    std::filesystem::permissions(unreadable, std::filesystem::perms::none);
    put->uploadingFileURL = unreadable;
    if (::access(unreadable.c_str(), R_OK) != 0) {  // root reads anything: nothing to check then
        auto denied = waited(client->putObject(put));
        ASSERT_TRUE(denied->error());
        EXPECT_EQ(denied->error()->code, OSSClientErrorCodeFileCantRead);
    }

    for (const char* endpoint : {"", "https://", "http://:80"}) {
        OSSClient bad(endpoint, rootKeys());
        EXPECT_FALSE(bad.isValid());
        put->uploadingFileURL = makeFile("ok.bin", 10);
        auto task = waited(bad.putObject(put));
        ASSERT_TRUE(task->error());
        EXPECT_EQ(task->error()->code, OSSClientErrorCodeInvalidArgument);
        EXPECT_NE(task->error()->description.find("no host"), std::string::npos) << endpoint;
    }
}

}  // namespace oss_test
