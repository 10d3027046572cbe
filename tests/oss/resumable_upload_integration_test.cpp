// Resumable multipart uploads against the in-process emulator: integrity, resuming after a cancel
// or a dropped client, stale and corrupt records, CRC checks.
#include <filesystem>
#include <mutex>
#include <set>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>

#include "oss/crc64.h"
#include "oss/oss_body.h"
#include "oss/oss_checkpoint.h"
#include "oss_fixture.h"

namespace oss_test {
namespace {

constexpr std::int64_t kPart = 128 * 1024;
constexpr int kHangMs = 5000;  // a part that hangs until the test cancels it

// Progress as the caller sees it, with the checks every upload must pass.
struct ProgressLog {
    std::mutex mutex;
    std::int64_t last = 0;
    std::int64_t expected = 0;
    bool wentBack = false;

    OSSNetworkingUploadProgressBlock block() {
        return [this](std::int64_t now, std::int64_t total, std::int64_t expectedTotal) {
            std::lock_guard lock(mutex);
            if (now <= 0 || total <= last || total > expectedTotal || total - last != now) wentBack = true;
            last = total;
            expected = expectedTotal;
        };
    }
};

OSSFileState stateOf(const std::string& path) {
    Error error;
    auto file = inspectLocalFile(path, &error);
    EXPECT_TRUE(file) << error.toString();
    return file ? file->state() : OSSFileState{};
}

std::set<int> sentPartNumbers(const emulator::CloudEmulator& cloud, std::size_t skip) {
    std::set<int> numbers;
    auto requests = cloud.requests("UploadPart");
    for (std::size_t i = skip; i < requests.size(); ++i) {
        auto at = requests[i].query.find("partNumber=");
        numbers.insert(std::stoi(requests[i].query.substr(at + 11)));
    }
    return numbers;
}

}  // namespace

class ResumableUploadTest : public OssEmulatorTest {
protected:
    std::shared_ptr<OSSResumableUploadRequest> request(const std::string& path, const std::string& key,
                                                       const std::string& uploadId = {}) {
        auto r = std::make_shared<OSSResumableUploadRequest>();
        r->bucketName = bucket();
        r->objectKey = key;
        r->uploadId = uploadId;
        r->uploadingFileURL = path;
        r->partSize = kPart;
        r->recordDirectoryPath = recordDir();
        r->deleteUploadIdOnCancelling = false;
        return r;
    }
    std::string recordFile(const std::string& key, const std::string& path) {
        return recordDir() + "/" + checkpointFileName(service(), bucket(), key, path);
    }
    std::string service() const {
        std::string why;
        return checkpointEndpoint(*parseEndpoint(cloud.endpoint(), false, &why));
    }
    static OSSClientConfiguration sequential() {
        OSSClientConfiguration conf;
        conf.maxConcurrentParts = 1;
        return conf;
    }
};

TEST_F(ResumableUploadTest, MultipartUploadReadsBackIdenticalWithNotificationAndProgress) {
    std::string bytes;
    auto path = makeFile("video.mp4", 5 * kPart + 777, &bytes);
    auto client = makeClient();
    auto r = request(path, "vod/video.mp4");
    r->completeMetaHeader["x-oss-notification"] = "eyJWb2QiOnt9fQ==";
    ProgressLog progress;
    r->uploadProgress = progress.block();
    auto task = waited(client->resumableUpload(r));
    ASSERT_FALSE(task->error()) << task->error()->toString();
    EXPECT_EQ(cloud.objectBytes(bucket(), "vod/video.mp4"), bytes);
    auto object = cloud.object(bucket(), "vod/video.mp4");
    EXPECT_EQ(object->partCount, 6);
    EXPECT_EQ(object->notificationRaw, "eyJWb2QiOnt9fQ==");
    EXPECT_EQ(task->result()->localCRC64ecma, Crc64::compute(bytes));
    EXPECT_EQ(task->result()->remoteCRC64ecma, Crc64::compute(bytes));
    EXPECT_FALSE(progress.wentBack);
    EXPECT_EQ(progress.last, static_cast<std::int64_t>(bytes.size()));
    EXPECT_FALSE(std::filesystem::exists(recordFile("vod/video.mp4", path)));  // done: no record left
}

TEST_F(ResumableUploadTest, CancelKeepsTheRecordAndTheNextClientSendsOnlyMissingParts) {
    std::string bytes;
    auto path = makeFile("big.bin", 8 * kPart, &bytes);
    std::string uploadId;
    {
        auto client = makeClient(sequential());
        auto r = request(path, "big.bin");
        ProgressLog progress;
        r->uploadProgress = progress.block();
        cloud.addFaults({emulator::Fault::delay("UploadPart", 0), emulator::Fault::delay("UploadPart", 0),
                         emulator::Fault::delay("UploadPart", 0), emulator::Fault::delay("UploadPart", kHangMs)});
        auto task = client->resumableUpload(r);
        ASSERT_TRUE(partsArrived(4));  // three parts stored, the fourth hanging
        r->cancel();
        ASSERT_TRUE(task->waitFor(kWait));
        ASSERT_TRUE(task->error());
        EXPECT_EQ(task->error()->code, OSSClientErrorCodeTaskCancelled);
        auto record = parseCheckpoint(*foundation::readFile(recordFile("big.bin", path)));
        ASSERT_TRUE(record);
        uploadId = record->uploadId;
        EXPECT_EQ(record->parts.size(), 3u);
    }
    auto stored = cloud.upload(uploadId)->parts;
    std::set<int> missing = {1, 2, 3, 4, 5, 6, 7, 8};
    for (const auto& p : stored) missing.erase(p.number);
    auto before = cloud.requests("UploadPart").size();

    auto client = makeClient();
    auto task = waited(client->resumableUpload(request(path, "big.bin", uploadId)));
    ASSERT_FALSE(task->error()) << task->error()->toString();
    EXPECT_EQ(sentPartNumbers(cloud, before), missing);
    EXPECT_EQ(cloud.objectBytes(bucket(), "big.bin"), bytes);
}

TEST_F(ResumableUploadTest, DroppingTheClientMidUploadLeavesARecordAnotherClientFinishes) {
    std::string bytes;
    auto path = makeFile("crash.bin", 6 * kPart + 5, &bytes);
    auto r = request(path, "crash.bin");
    ProgressLog progress;
    r->uploadProgress = progress.block();
    cloud.addFaults({emulator::Fault::delay("UploadPart", 0), emulator::Fault::delay("UploadPart", 0),
                     emulator::Fault::delay("UploadPart", kHangMs)});  // the third part hangs
    auto client = makeClient(sequential());
    auto task = client->resumableUpload(r);
    ASSERT_TRUE(partsArrived(3));
    client.reset();  // the process "dies": the upload ends, its record stays
    ASSERT_TRUE(task->isCompleted());
    EXPECT_EQ(task->error()->code, OSSClientErrorCodeTaskCancelled);
    cloud.clearFaults();

    auto before = cloud.requests("UploadPart").size();
    auto again = makeClient();
    auto finished = waited(again->resumableUpload(request(path, "crash.bin")));  // upload id from the record
    ASSERT_FALSE(finished->error()) << finished->error()->toString();
    EXPECT_EQ(sentPartNumbers(cloud, before), (std::set<int>{3, 4, 5, 6, 7}));
    EXPECT_EQ(cloud.objectBytes(bucket(), "crash.bin"), bytes);
}

TEST_F(ResumableUploadTest, PartsTheRecordClaimsButTheServiceLacksAreSentAgain) {
    std::string bytes;
    auto path = makeFile("stale.bin", 4 * kPart, &bytes);
    auto client = makeClient();
    auto init = std::make_shared<OSSInitMultipartUploadRequest>();
    init->bucketName = bucket();
    init->objectKey = "stale.bin";
    auto uploadId = waited(client->multipartUploadInit(init))->result()->uploadId;
    // A record from "an earlier run" that claims every part, none of which the service has.
    OSSUploadCheckpoint record{service(), bucket(), "stale.bin", path, uploadId, stateOf(path), kPart, {}};
    for (int n = 1; n <= 4; ++n) record.parts[n] = {n, "\"0123456789ABCDEF0123456789ABCDEF\"", kPart, 1};
    std::filesystem::create_directories(recordDir());
    ASSERT_TRUE(foundation::writeFileAtomically(recordFile("stale.bin", path), serializeCheckpoint(record)));

    auto task = waited(client->resumableUpload(request(path, "stale.bin", uploadId)));
    ASSERT_FALSE(task->error()) << task->error()->toString();
    EXPECT_EQ(sentPartNumbers(cloud, 0), (std::set<int>{1, 2, 3, 4}));
    EXPECT_EQ(cloud.objectBytes(bucket(), "stale.bin"), bytes);
}

TEST_F(ResumableUploadTest, CorruptRecordOrChangedFileRestartsCleanly) {
    std::string bytes;
    auto path = makeFile("c.bin", 3 * kPart, &bytes);
    std::filesystem::create_directories(recordDir());
    ASSERT_TRUE(foundation::writeFileAtomically(recordFile("c.bin", path), "{\"version\":1,\"parts\":[{"));
    auto client = makeClient();
    auto task = waited(client->resumableUpload(request(path, "c.bin")));
    ASSERT_FALSE(task->error()) << task->error()->toString();
    EXPECT_EQ(cloud.objectBytes(bucket(), "c.bin"), bytes);

    // Half an upload, then the file changes under the same name: nothing of the old parts is kept.
    auto r = request(path, "c2.bin");
    ProgressLog progress;
    r->uploadProgress = progress.block();
    auto sequentialClient = makeClient(sequential());
    cloud.addFaults({emulator::Fault::delay("UploadPart", 0), emulator::Fault::delay("UploadPart", kHangMs)});
    auto first = sequentialClient->resumableUpload(r);
    ASSERT_TRUE(partsArrived(2));
    r->cancel();
    ASSERT_TRUE(first->waitFor(kWait));
    cloud.clearFaults();
    std::string changed;
    makeFile("c.bin", 3 * kPart, &changed, 99);
    auto before = cloud.requests("UploadPart").size();
    auto second = waited(client->resumableUpload(request(path, "c2.bin")));
    ASSERT_FALSE(second->error()) << second->error()->toString();
    EXPECT_EQ(sentPartNumbers(cloud, before), (std::set<int>{1, 2, 3}));
    EXPECT_EQ(cloud.objectBytes(bucket(), "c2.bin"), changed);
}

TEST_F(ResumableUploadTest, CrcMismatchFailsThePartNeverASilentSuccess) {
    auto path = makeFile("crc.bin", 2 * kPart);
    cloud.addFault(emulator::Fault::corruptCrc("UploadPart"));
    auto client = makeClient();
    auto task = waited(client->resumableUpload(request(path, "crc.bin")));
    ASSERT_TRUE(task->error());
    EXPECT_EQ(task->error()->code, OSSClientErrorCodeInvalidCRC);
    EXPECT_FALSE(cloud.object(bucket(), "crc.bin"));
}

TEST_F(ResumableUploadTest, ConcurrentPartsWithARetriedPartStayConsistent) {
    std::string bytes;
    auto path = makeFile("par.bin", 10 * kPart + 1, &bytes);
    OSSClientConfiguration conf;
    conf.maxConcurrentParts = 4;
    auto client = makeClient(conf);
    cloud.addFaults({emulator::Fault::reset("UploadPart", 64 * 1024), emulator::Fault::error("UploadPart", 500, "InternalError")});
    auto r = request(path, "par.bin");
    ProgressLog progress;
    r->uploadProgress = progress.block();
    auto task = waited(client->resumableUpload(r));
    ASSERT_FALSE(task->error()) << task->error()->toString();
    EXPECT_FALSE(progress.wentBack);
    EXPECT_EQ(progress.last, static_cast<std::int64_t>(bytes.size()));
    EXPECT_EQ(cloud.objectBytes(bucket(), "par.bin"), bytes);
}

TEST_F(ResumableUploadTest, CancelWithDeleteUploadIdAbortsAndBadFilesAreRefused) {
    auto path = makeFile("del.bin", 4 * kPart);
    auto r = request(path, "del.bin");
    r->deleteUploadIdOnCancelling = true;
    ProgressLog progress;
    r->uploadProgress = progress.block();
    cloud.addFaults({emulator::Fault::delay("UploadPart", 0), emulator::Fault::delay("UploadPart", kHangMs)});
    auto client = makeClient(sequential());
    auto task = client->resumableUpload(r);
    ASSERT_TRUE(partsArrived(2));
    r->cancel();
    ASSERT_TRUE(task->waitFor(kWait));
    EXPECT_EQ(task->error()->code, OSSClientErrorCodeTaskCancelled);
    auto uploads = cloud.uploads();
    ASSERT_EQ(uploads.size(), 1u);
    EXPECT_EQ(uploads[0].state, emulator::UploadState::Aborted);
    EXPECT_FALSE(std::filesystem::exists(recordFile("del.bin", path)));

    auto empty = makeFile("empty.bin", 0);
    auto emptyTask = waited(client->resumableUpload(request(empty, "e")));
    ASSERT_TRUE(emptyTask->error());
    EXPECT_EQ(emptyTask->error()->code, OSSClientErrorCodeInvalidArgument);
    EXPECT_NE(emptyTask->error()->description.find("empty"), std::string::npos);
    auto small = request(path, "s");
    small->partSize = 1000;
    EXPECT_EQ(waited(client->resumableUpload(small))->error()->code, OSSClientErrorCodeInvalidArgument);
    auto missing = waited(client->resumableUpload(request(dir.path() + "/nope", "n")));
    EXPECT_EQ(missing->error()->code, OSSClientErrorCodeFileCantRead);
}

// A file rewritten in place between a crash and the resume, on a file system whose times cannot tell
// (the record shows the file as it is now): the record and the service still agree on part 1, but the
// file no longer holds those bytes.
TEST_F(ResumableUploadTest, ARecordedPartIsTrustedOnlyWhileTheFileStillHoldsItsBytes) {
    std::string oldBytes;
    auto path = makeFile("rewritten.bin", 3 * kPart, &oldBytes);
    auto client = makeClient();
    auto init = std::make_shared<OSSInitMultipartUploadRequest>();
    init->bucketName = bucket();
    init->objectKey = "rewritten.bin";
    auto uploadId = waited(client->multipartUploadInit(init))->result()->uploadId;
    std::map<int, OSSPartInfo> stored;
    for (int n = 1; n <= 2; ++n) {
        auto part = std::make_shared<OSSUploadPartRequest>();
        part->bucketName = bucket();
        part->objectKey = "rewritten.bin";
        part->uploadId = uploadId;
        part->partNumber = n;
        part->uploadPartFileURL = path;
        part->uploadPartFileOffset = static_cast<std::uint64_t>(n - 1) * kPart;
        part->uploadPartLength = kPart;
        auto sent = waited(client->uploadPart(part));
        ASSERT_FALSE(sent->error());
        stored[n] = {n, sent->result()->eTag, kPart, *sent->result()->localCRC64ecma};
    }
    struct stat before {};
    ASSERT_EQ(::stat(path.c_str(), &before), 0);
    auto newBytes = oldBytes;
    for (std::size_t i = 0; i < static_cast<std::size_t>(kPart); i += 7) newBytes[i] = static_cast<char>(newBytes[i] ^ 0x5a);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << newBytes;
    const struct timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    OSSUploadCheckpoint record{service(), bucket(), "rewritten.bin", path, uploadId, stateOf(path), kPart, stored};
    std::filesystem::create_directories(recordDir());
    ASSERT_TRUE(foundation::writeFileAtomically(recordFile("rewritten.bin", path), serializeCheckpoint(record)));

    auto sentBefore = cloud.requests("UploadPart").size();
    auto task = waited(client->resumableUpload(request(path, "rewritten.bin")));
    ASSERT_FALSE(task->error()) << task->error()->toString();
    EXPECT_EQ(sentPartNumbers(cloud, sentBefore), (std::set<int>{1, 3}));
    EXPECT_EQ(cloud.objectBytes(bucket(), "rewritten.bin"), newBytes);
}

// Without its record nothing would ever continue or abort an upload the run initiated.
TEST_F(ResumableUploadTest, ARunThatCannotWriteItsRecordAbortsTheUploadItStarted) {
    auto path = makeFile("unrecorded.bin", 2 * kPart);
    // The record's name is taken by a directory that is not empty, so it cannot be replaced.
    std::filesystem::create_directories(recordFile("unrecorded.bin", path) + "/occupied");
    auto client = makeClient();
    auto task = waited(client->resumableUpload(request(path, "unrecorded.bin")));
    ASSERT_TRUE(task->error());
    EXPECT_EQ(task->error()->code, OSSClientErrorCodeFileCantWrite);
    ASSERT_EQ(cloud.requests("InitiateMultipartUpload").size(), 1u);
    for (const auto& upload : cloud.uploads())
        EXPECT_NE(upload.state, emulator::UploadState::Open) << upload.uploadId;
    EXPECT_TRUE(cloud.requests("UploadPart").empty());
}

}  // namespace oss_test
