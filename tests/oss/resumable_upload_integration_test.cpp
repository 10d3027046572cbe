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
    using OssEmulatorTest::OssEmulatorTest;
    std::shared_ptr<OSSResumableUploadRequest> request(const std::string& path, const std::string& key,
                                                       const std::string& uploadId = {}) {
        auto r = resumableOf(path, key, kPart);
        r->uploadId = uploadId;
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
    void writeRecord(const OSSUploadCheckpoint& record) {
        std::filesystem::create_directories(recordDir());
        ASSERT_TRUE(foundation::writeFileAtomically(recordFile(record.objectKey, record.filePath),
                                                    serializeCheckpoint(record)));
    }
    // Sends the parts of `r` one at a time: `stored` of them are stored, then the next one hangs until
    // the upload is cancelled, or its client dropped, which ends it cancelled at once.
    void interrupt(const std::shared_ptr<OSSResumableUploadRequest>& r, std::size_t stored, bool dropClient = false) {
        r->uploadProgress = progress.block();
        const auto fired = cloud.firedCount("UploadPart") + stored + 1;
        for (std::size_t i = 0; i < stored; ++i) cloud.addFault(emulator::Fault::delay("UploadPart", 0));
        cloud.addFault(emulator::Fault::delay("UploadPart", kHangMs));
        OSSClientConfiguration sequential;
        sequential.maxConcurrentParts = 1;
        auto client = makeClient(sequential);
        auto task = client->resumableUpload(r);
        ASSERT_TRUE(partsArrived(fired));
        if (dropClient) {
            client.reset();  // the process "dies": the upload ends, its record stays
            EXPECT_TRUE(task->isCompleted());
        } else {
            r->cancel();
            ASSERT_TRUE(task->waitFor(kWait));
        }
        EXPECT_EQ(codeOf(task), OSSClientErrorCodeTaskCancelled);
        cloud.clearFaults();
    }
    // Parts 1 to `count` of the file, sent one by one as an earlier run would have: what it recorded of them.
    std::map<int, OSSPartInfo> sendParts(OSSClient& client, const std::string& uploadId, const std::string& path,
                                         const std::string& key, int count) {
        std::map<int, OSSPartInfo> stored;
        for (int n = 1; n <= count; ++n) {
            auto part = on<OSSUploadPartRequest>(key);
            part->uploadId = uploadId;
            part->partNumber = n;
            part->uploadPartFileURL = path;
            part->uploadPartFileOffset = static_cast<std::uint64_t>(n - 1) * kPart;
            part->uploadPartLength = kPart;
            auto sent = waited(client.uploadPart(part));
            if (sent->error()) break;
            stored[n] = {n, sent->result()->eTag, kPart, *sent->result()->localCRC64ecma};
        }
        return stored;
    }
    ProgressLog progress;
};

// A store that keeps no CRC-64 per part: its listing names none.
class ResumableUploadWithoutPartCrcs : public ResumableUploadTest {
protected:
    ResumableUploadWithoutPartCrcs()
        : ResumableUploadTest([] {
              emulator::EmulatorOptions options;
              options.listPartCrc64 = false;
              return options;
          }()) {}
};

// Four parts at a time, one of them reset and one refused once: the object reads back identical.
TEST_F(ResumableUploadTest, ConcurrentPartsWithRetriedOnesReadBackIdenticalWithNotificationAndProgress) {
    std::string bytes;
    auto path = makeFile("video.mp4", 10 * kPart + 777, &bytes);
    OSSClientConfiguration conf;
    conf.maxConcurrentParts = 4;
    auto client = makeClient(conf);
    cloud.addFaults({emulator::Fault::reset("UploadPart", 64 * 1024), emulator::Fault::error("UploadPart", 500, "InternalError")});
    auto r = request(path, "vod/video.mp4");
    r->completeMetaHeader["x-oss-notification"] = "eyJWb2QiOnt9fQ==";
    r->uploadProgress = progress.block();
    auto task = waited(client->resumableUpload(r));
    ASSERT_FALSE(task->error()) << task->error()->toString();
    EXPECT_EQ(cloud.objectBytes(bucket(), "vod/video.mp4"), bytes);
    auto object = cloud.object(bucket(), "vod/video.mp4");
    EXPECT_EQ(object->partCount, 11);
    EXPECT_EQ(object->notificationRaw, "eyJWb2QiOnt9fQ==");
    EXPECT_EQ(task->result()->localCRC64ecma, Crc64::compute(bytes));
    EXPECT_EQ(task->result()->remoteCRC64ecma, Crc64::compute(bytes));
    EXPECT_FALSE(progress.wentBack);
    EXPECT_EQ(progress.last, static_cast<std::int64_t>(bytes.size()));
    EXPECT_FALSE(std::filesystem::exists(recordFile("vod/video.mp4", path)));  // done: no record left
}

TEST_F(ResumableUploadTest, CancelOrADroppedClientKeepsTheRecordAndTheNextClientSendsOnlyMissingParts) {
    std::string bytes;
    auto path = makeFile("big.bin", 8 * kPart, &bytes);
    interrupt(request(path, "big.bin"), 3);
    auto record = parseCheckpoint(*foundation::readFile(recordFile("big.bin", path)));
    ASSERT_TRUE(record);
    EXPECT_EQ(record->parts.size(), 3u);
    std::set<int> missing = {1, 2, 3, 4, 5, 6, 7, 8};
    const auto upload = cloud.upload(record->uploadId);
    for (const auto& p : upload->parts) missing.erase(p.number);
    auto before = cloud.requests("UploadPart").size();
    auto client = makeClient();
    auto task = waited(client->resumableUpload(request(path, "big.bin", record->uploadId)));
    ASSERT_FALSE(task->error()) << task->error()->toString();
    EXPECT_EQ(sentPartNumbers(cloud, before), missing);
    EXPECT_EQ(cloud.objectBytes(bucket(), "big.bin"), bytes);

    auto crashed = makeFile("crash.bin", 6 * kPart + 5, &bytes);
    interrupt(request(crashed, "crash.bin"), 2, true);
    before = cloud.requests("UploadPart").size();
    auto finished = waited(client->resumableUpload(request(crashed, "crash.bin")));  // upload id from the record
    ASSERT_FALSE(finished->error()) << finished->error()->toString();
    EXPECT_EQ(sentPartNumbers(cloud, before), (std::set<int>{3, 4, 5, 6, 7}));
    EXPECT_EQ(cloud.objectBytes(bucket(), "crash.bin"), bytes);
}

TEST_F(ResumableUploadTest, PartsTheRecordClaimsButTheServiceLacksAreSentAgain) {
    std::string bytes;
    auto path = makeFile("stale.bin", 4 * kPart, &bytes);
    auto client = makeClient();
    auto uploadId = initiate(*client, "stale.bin");
    // A record from "an earlier run" that claims every part, none of which the service has.
    OSSUploadCheckpoint record{service(), bucket(), "stale.bin", path, uploadId, stateOf(path), kPart, {}};
    for (int n = 1; n <= 4; ++n) record.parts[n] = {n, "\"0123456789ABCDEF0123456789ABCDEF\"", kPart, 1};
    writeRecord(record);

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
    interrupt(request(path, "c2.bin"), 1);
    std::string changed;
    makeFile("c.bin", 3 * kPart, &changed, 99);
    auto before = cloud.requests("UploadPart").size();
    auto second = waited(client->resumableUpload(request(path, "c2.bin")));
    ASSERT_FALSE(second->error()) << second->error()->toString();
    EXPECT_EQ(sentPartNumbers(cloud, before), (std::set<int>{1, 2, 3}));
    EXPECT_EQ(cloud.objectBytes(bucket(), "c2.bin"), changed);
}

TEST_F(ResumableUploadTest, CancelWithDeleteUploadIdAbortsAndBadFilesAndCrcMismatchesFail) {
    auto path = makeFile("del.bin", 4 * kPart);
    auto r = request(path, "del.bin");
    r->deleteUploadIdOnCancelling = true;
    interrupt(r, 1);
    auto uploads = cloud.uploads();
    ASSERT_EQ(uploads.size(), 1u);
    EXPECT_EQ(uploads[0].state, emulator::UploadState::Aborted);
    EXPECT_FALSE(std::filesystem::exists(recordFile("del.bin", path)));

    auto client = makeClient();
    auto emptyTask = waited(client->resumableUpload(request(makeFile("empty.bin", 0), "e")));
    EXPECT_EQ(codeOf(emptyTask), OSSClientErrorCodeInvalidArgument);
    EXPECT_NE(emptyTask->error()->description.find("empty"), std::string::npos);
    auto small = request(path, "s");
    small->partSize = 1000;
    EXPECT_EQ(codeOf(waited(client->resumableUpload(small))), OSSClientErrorCodeInvalidArgument);
    auto missing = waited(client->resumableUpload(request(dir.path() + "/nope", "n")));
    EXPECT_EQ(codeOf(missing), OSSClientErrorCodeFileCantRead);

    // A CRC mismatch fails the part, never a silent success.
    cloud.addFault(emulator::Fault::corruptCrc("UploadPart"));
    EXPECT_EQ(codeOf(waited(client->resumableUpload(request(path, "crc.bin")))), OSSClientErrorCodeInvalidCRC);
    EXPECT_FALSE(cloud.object(bucket(), "crc.bin"));
}

// A file rewritten in place between a crash and the resume, on a file system whose times cannot tell
// (the record shows the file as it is now): the record and the service still agree on part 1, but the
// file no longer holds those bytes.
TEST_F(ResumableUploadTest, ARecordedPartIsTrustedOnlyWhileTheFileStillHoldsItsBytes) {
    std::string oldBytes;
    auto path = makeFile("rewritten.bin", 3 * kPart, &oldBytes);
    auto client = makeClient();
    auto uploadId = initiate(*client, "rewritten.bin");
    auto stored = sendParts(*client, uploadId, path, "rewritten.bin", 2);
    ASSERT_EQ(stored.size(), 2u);
    struct stat before {};
    ASSERT_EQ(::stat(path.c_str(), &before), 0);
    auto newBytes = oldBytes;
    for (std::size_t i = 0; i < static_cast<std::size_t>(kPart); i += 7) newBytes[i] = static_cast<char>(newBytes[i] ^ 0x5a);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << newBytes;
    const struct timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    writeRecord({service(), bucket(), "rewritten.bin", path, uploadId, stateOf(path), kPart, stored});

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
    EXPECT_EQ(codeOf(waited(client->resumableUpload(request(path, "unrecorded.bin")))), OSSClientErrorCodeFileCantWrite);
    ASSERT_EQ(cloud.requests("InitiateMultipartUpload").size(), 1u);
    for (const auto& upload : cloud.uploads())
        EXPECT_NE(upload.state, emulator::UploadState::Open) << upload.uploadId;
    EXPECT_TRUE(cloud.requests("UploadPart").empty());
}

// The record's CRC of a stored part stands in for the service's, but only for the part it recorded: one
// whose ETag has changed since (sent again by another run) is sent again.
TEST_F(ResumableUploadWithoutPartCrcs, ARecordedPartIsTrustedThroughTheRecordOnlyWhileItsETagIsTheStoredOne) {
    std::string bytes;
    auto path = makeFile("uncrc.bin", 3 * kPart, &bytes);
    auto client = makeClient();
    auto uploadId = initiate(*client, "uncrc.bin");
    auto stored = sendParts(*client, uploadId, path, "uncrc.bin", 2);
    ASSERT_EQ(stored.size(), 2u);
    stored[2].eTag = "\"0123456789ABCDEF0123456789ABCDEF\"";
    writeRecord({service(), bucket(), "uncrc.bin", path, uploadId, stateOf(path), kPart, stored});

    auto sentBefore = cloud.requests("UploadPart").size();
    auto task = waited(client->resumableUpload(request(path, "uncrc.bin")));
    ASSERT_FALSE(task->error()) << task->error()->toString();
    EXPECT_EQ(sentPartNumbers(cloud, sentBefore), (std::set<int>{2, 3}));
    EXPECT_EQ(cloud.objectBytes(bucket(), "uncrc.bin"), bytes);
}

}  // namespace oss_test
