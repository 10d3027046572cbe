// What the engine stores is exactly the file, or the file fails: a file changed during its upload, a
// recorded upload the service no longer has, records made for another service or key, records that are
// not records, and uploads left behind by records that are dropped.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>

#include "engine_cloud_support.h"
#include "foundation/http_client.h"
#include "oss/credential_provider.h"
#include "oss/oss_checkpoint.h"

using namespace quorvane;
using namespace quorvane::test;

namespace {

constexpr std::size_t kMiB = 1048576;

// The file ended, well or not: a wrong ending fails the test at once instead of after a long wait.
bool waitForEnd(const RecordingListener& l) {
    return waitUntil([&] { return l.count("finish") + l.count("failure") > 0; }, 90s);
}

// Rewrites `length` bytes at `offset` in place, then puts the size and the modification time back as
// they were: only the change time can tell.
void rewriteKeepingSizeAndMtime(const std::string& path, std::size_t offset, std::size_t length) {
    struct stat before {};
    ASSERT_EQ(::stat(path.c_str(), &before), 0);
    // Change times are kept at the kernel's tick: let one pass since the file was written.
    std::this_thread::sleep_for(30ms);
    const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    const auto bytes = randomBytes(length, 999);
    ASSERT_EQ(::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset)), static_cast<ssize_t>(length));
    ::close(fd);
    const struct timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    struct stat after {};
    ASSERT_EQ(::stat(path.c_str(), &after), 0);
    ASSERT_EQ(after.st_size, before.st_size);
    ASSERT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
}

void append(const std::string& path, std::size_t length) {
    std::ofstream(path, std::ios::binary | std::ios::app) << randomBytes(length, 998);
}

}  // namespace

class FileIntegrity : public EngineCloudTest {
protected:
    // The recording listener, adjusted; one part at a time, so a change lands between known parts.
    void initWith(const std::function<void(VODUploadListener&)>& adjust) {
        auto l = listener.make();
        adjust(*l);
        ASSERT_TRUE(client->init(sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken, sts.Expiration, l));
        VODUploadEngineTestAccess::setMaxConcurrentParts(*client, 1);
    }
    // Runs `change` once, from the first progress call. Part 2 is held on the service meanwhile, so
    // the change lands in mid-upload however fast the rest would go.
    void initChangingAtFirstProgress(std::function<void()> change) {
        cloud.addFaults({Fault::delay("UploadPart", 0), Fault::delay("UploadPart", 1500)});
        initWith([&](VODUploadListener& l) {
            l.progress = [record = l.progress, change = std::move(change),
                          done = std::make_shared<std::atomic<bool>>(false)](const auto& file, long sent, long total) {
                if (!done->exchange(true)) change();
                record(file, sent, total);
            };
        });
    }

    // The file failed as changed, nothing was stored under `key` and no upload stays open.
    void expectFailedAsChanged(const std::string& bucketName, const std::string& key) {
        ASSERT_TRUE(waitForEnd(listener));
        ASSERT_EQ(listener.count("failure"), 1);
        EXPECT_EQ(listener.count("success"), 0);
        const auto failure = listener.failures().at(0);
        EXPECT_EQ(failure.first, "FileChanged");
        EXPECT_NE(failure.second.find("changed while it was being uploaded"), std::string::npos) << failure.second;
        EXPECT_FALSE(cloud.object(bucketName, key));
        EXPECT_EQ(openUploads(), 0u);
        EXPECT_TRUE(cloud.requests("CompleteMultipartUpload").empty());
        EXPECT_EQ(listener.failureStates(), std::vector<UploadFileState>{UploadFileState::Failure});
    }
};

// Rewritten in place with its size and modification time put back (only the change time tells), or
// grown: either way the file fails instead of storing what it no longer is.
class ChangedFile : public FileIntegrity, public ::testing::WithParamInterface<bool> {};

TEST_P(ChangedFile, FailsTheFile) {
    const bool rewrite = GetParam();
    const std::string key = rewrite ? "in/rewritten.bin" : "in/grown.bin";
    const auto path = dir.file(rewrite ? "rewritten.bin" : "grown.bin");  // the test's name holds a slash
    writeFile(path, randomBytes((rewrite ? 4 : 3) * kMiB, 1));
    initChangingAtFirstProgress([&] {
        if (rewrite)
            rewriteKeepingSizeAndMtime(path, 2 * kMiB + 100, 8192);
        else
            append(path, kMiB);
    });
    ASSERT_TRUE(addAndStart(path, key));
    // How many parts went before the check saw the change depends on how soon the progress call ran:
    // not counted here, so a loaded machine cannot fail the test.
    expectFailedAsChanged(bucket(), key);
}

INSTANTIATE_TEST_SUITE_P(RewrittenOrAppended, ChangedFile, ::testing::Bool());

// A change between a failed attempt and its retry counts too: the retry starts from the file as the
// upload first saw it, not as it is now.
TEST_F(FileIntegrity, ChangeBeforeARetryFailsTheRetry) {
    auto path = makeFile("retried.bin", randomBytes(2 * kMiB, 3));
    initWith([&](VODUploadListener& l) {
        l.retry = [&, record = l.retry] {
            rewriteKeepingSizeAndMtime(path, kMiB + 10, 4096);
            record();
        };
    });
    // Part 2 gets 503 on every attempt of the storage client, so the engine retries the upload; the
    // file is rewritten before it does.
    cloud.addFaults({Fault::delay("UploadPart", 0), Fault::error("UploadPart", 503, "ServiceUnavailable"),
                     Fault::error("UploadPart", 503, "ServiceUnavailable"),
                     Fault::error("UploadPart", 503, "ServiceUnavailable")});
    client->setMaxRetryCount(3);
    ASSERT_TRUE(addAndStart(path, "in/retried.bin"));
    expectFailedAsChanged(bucket(), "in/retried.bin");
    EXPECT_EQ(listener.count("retry"), 1);
}

TEST_F(FileIntegrity, VideoRegisteredWithTheServiceFailsTheSameWay) {
    auto clip = makeFile("clip.mp4", "");
    ASSERT_TRUE(writeClip(clip, ClipSpec{.frames = 50, .bitRate = 2000000}));
    client->setUploadPartSize(102400);
    std::error_code ec;
    ASSERT_GT(std::filesystem::file_size(clip, ec), 3u * 102400) << "the clip must span several parts";
    initChangingAtFirstProgress([&] { rewriteKeepingSizeAndMtime(clip, 2 * 102400 + 10, 8192); });
    auto info = std::make_shared<VodInfo>();
    info->title = "changing clip";
    ASSERT_TRUE(addAndStart(clip, info));
    ASSERT_TRUE(waitForEnd(listener));
    const auto videos = cloud.videos();
    ASSERT_EQ(videos.size(), 1u);
    expectFailedAsChanged(videos[0].bucket, videos[0].objectKey);
    VODObjectCache::sharedCache().clearObjectWithPath(clip);
}

// A file no larger than a part goes up as one PutObject: it is looked at again before its last bytes go,
// so a change while it is on the wire stores nothing; a pause cancels the put and a resume sends it again.
class SinglePut : public FileIntegrity {
protected:
    void SetUp() override {
        FileIntegrity::SetUp();
        auto config = services();
        config.httpClient = http;
        useClient(VODUploadClient::create(std::move(config)));
        client->setSingleRequestUpload(true);
    }
    // About 4 s on the wire for a part of 1 MiB, so the test acts while the body is being sent.
    std::shared_ptr<foundation::HttpClient> http =
        std::make_shared<foundation::HttpClient>(foundation::HttpClientOptions{2, 8, 256 * 1024});
};

TEST_F(SinglePut, AFileChangedWhileItIsSentIsNotStored) {
    auto path = makeFile("small.bin", randomBytes(kMiB, 5));
    initChangingAtFirstProgress([&] { rewriteKeepingSizeAndMtime(path, kMiB - 4096, 4096); });
    ASSERT_TRUE(addAndStart(path, "in/small.bin"));
    expectFailedAsChanged(bucket(), "in/small.bin");
    EXPECT_TRUE(cloud.requests("InitiateMultipartUpload").empty());
}

TEST_F(SinglePut, APausedPutIsSentAgainWholeOnResume) {
    auto bytes = randomBytes(kMiB, 6);
    auto path = makeFile("paused.bin", bytes);
    initWith([](VODUploadListener&) {});
    ASSERT_TRUE(addAndStart(path, "in/paused.bin"));
    ASSERT_TRUE(waitUntil([&] { return listener.count("progress") > 0; }, 30s));
    ASSERT_TRUE(client->pause());
    EXPECT_EQ(client->listFiles().at(0)->state, UploadFileState::Uploading);
    http->setSendRateLimit(0);
    ASSERT_TRUE(client->resume());
    ASSERT_TRUE(waitForEnd(listener));
    ASSERT_EQ(listener.count("finish"), 1);
    EXPECT_EQ(cloud.objectBytes(bucket(), "in/paused.bin"), bytes);
    EXPECT_TRUE(cloud.requests("InitiateMultipartUpload").empty());
    EXPECT_EQ(openUploads(), 0u);
}

// The check must not cost a good upload anything: an untouched file held the same way still goes up
// whole (without this, a hold alone failing every file would pass the tests above).
TEST_F(FileIntegrity, UntouchedFileStillGoesUpWhole) {
    auto path = makeFile("still.bin", randomBytes(3 * kMiB + 5, 4));
    initChangingAtFirstProgress([] {});
    ASSERT_TRUE(addAndStart(path, "in/still.bin"));
    ASSERT_TRUE(listener.waitFor("finish"));
    EXPECT_EQ(cloud.objectBytes(bucket(), "in/still.bin"), randomBytes(3 * kMiB + 5, 4));
}

// Runs that an earlier, interrupted run left a record for.
class RecordedUpload : public EngineCloudTest {
protected:
    // The first run stores part 1, then its credentials "expire" and the process goes away: the record
    // names an open upload holding part 1. Returns that upload's id.
    std::string interruptedRun(const std::string& path, const std::string& key) {
        EXPECT_TRUE(initSts(client));
        VODUploadEngineTestAccess::setMaxConcurrentParts(*client, 1);
        cloud.addFaults({Fault::delay("UploadPart", 0), Fault::error("UploadPart", 403, "SecurityTokenExpired")});
        const int expiredBefore = listener.count("expire");
        EXPECT_TRUE(addAndStart(path, key));
        EXPECT_TRUE(listener.waitFor("expire", expiredBefore + 1));
        client.reset();
        cloud.clearFaults();
        for (const auto& u : cloud.uploads())
            if (u.state == emulator::UploadState::Open && u.key == key) return u.uploadId;
        ADD_FAILURE() << "the first run left no open upload";
        return {};
    }

    // What a second process heard: a new client on the same record directory.
    struct Rerun {
        RecordingListener listener;
        std::atomic<int> restarts{0};
        std::vector<std::uint64_t> resumed;  // the bytes of each resumed call
    };
    // The second process uploads `path` to `key` on `service` (the fixture's cloud when not given)
    // until the file is done.
    void runAgain(Rerun& run, const std::string& path, const std::string& key,
                  emulator::CloudEmulator* service = nullptr) {
        auto next = startAgain(run, path, key, service);
        ASSERT_TRUE(next);
        ASSERT_EQ(run.listener.count("failure"), 0) << run.listener.failures().at(0).first;
        ASSERT_TRUE(waitUntil([&] { return next->state() == VODClientState::Finished; }));
        next->stop();
    }
    // The same until the file ended, well or not; nullptr when the client could not start or the file
    // did not end in time.
    std::shared_ptr<VODUploadClient> startAgain(Rerun& run, const std::string& path, const std::string& key,
                                                emulator::CloudEmulator* service = nullptr) {
        auto& to = service ? *service : cloud;
        auto next = VODUploadClient::create(services());
        next->setRecordDirectoryPath(dir.file("records"));
        engineOf(*next).setRetryWait(20ms);
        auto l = run.listener.make();
        l->restarted = [&run](const auto&, const std::string&) { ++run.restarts; };
        // Called on the engine's queue only, one call at a time.
        l->resumed = [&run](const auto&, std::uint64_t stored) { run.resumed.push_back(stored); };
        auto fresh = to.issueSts();
        const bool started =
            next->init(fresh.AccessKeyId, fresh.AccessKeySecret, fresh.SecurityToken, fresh.Expiration, l) &&
            next->addFile(path, to.endpoint(), to.options().bucket, key) && next->start();
        return started && waitForEnd(run.listener) ? next : nullptr;
    }

    void abortOnService(const std::string& key, const std::string& uploadId) {
        oss::OSSClient admin(cloud.endpoint(),
                             std::make_shared<oss::OSSPlainTextAKSKPairCredentialProvider>(
                                 cloud.options().accessKeyId, cloud.options().accessKeySecret));
        auto request = std::make_shared<oss::OSSAbortMultipartUploadRequest>();
        request->bucketName = bucket();
        request->objectKey = key;
        request->uploadId = uploadId;
        auto task = admin.abortMultipartUpload(request);
        ASSERT_TRUE(task->waitFor(30s));
        ASSERT_FALSE(task->error()) << task->error()->toString();
    }

    std::size_t recordCount() const {
        std::size_t n = 0;
        std::error_code ec;
        for (const auto& entry : std::filesystem::directory_iterator(dir.file("records"), ec)) n += entry.is_regular_file();
        return n;
    }
};

TEST_F(RecordedUpload, GoneOnTheServiceStartsAFreshUploadInTheSameRun) {
    const auto bytes = randomBytes(3 * kMiB, 20);
    auto path = makeFile("gone.bin", bytes);
    const auto first = interruptedRun(path, "in/gone.bin");
    ASSERT_FALSE(first.empty());
    ASSERT_EQ(recordCount(), 1u);
    abortOnService("in/gone.bin", first);

    Rerun again;
    ASSERT_NO_FATAL_FAILURE(runAgain(again, path, "in/gone.bin"));
    EXPECT_EQ(again.restarts, 1);
    EXPECT_EQ(cloud.objectBytes(bucket(), "in/gone.bin"), bytes);
    EXPECT_EQ(cloud.requests("InitiateMultipartUpload").size(), 2u);
    EXPECT_EQ(openUploads(), 0u);
    EXPECT_EQ(recordCount(), 0u);
}

// The fresh upload is this run's own: when the service loses that one too, the file fails rather than
// begin again and again.
TEST_F(RecordedUpload, OnlyTheRecordedUploadIsBegunAgain) {
    auto path = makeFile("twice.bin", randomBytes(3 * kMiB, 21));
    abortOnService("in/twice.bin", interruptedRun(path, "in/twice.bin"));
    cloud.addFaults({Fault::error("UploadPart", 404, "NoSuchUpload"), Fault::error("UploadPart", 404, "NoSuchUpload")});
    Rerun again;
    auto next = startAgain(again, path, "in/twice.bin");
    ASSERT_TRUE(next);
    EXPECT_EQ(again.restarts, 1);
    ASSERT_EQ(again.listener.count("failure"), 1);
    EXPECT_EQ(again.listener.failures().at(0).first, "NoSuchUpload");
    EXPECT_EQ(cloud.requests("InitiateMultipartUpload").size(), 2u);
    next->stop();
}

// An upload id means something on one service only, and "resumed" tells what the service really holds
// for this very key: the same file and key sent elsewhere, or to another key, starts afresh with nothing
// resumed; the record stays for a run against its own service and key, which sends the missing parts only.
TEST_F(RecordedUpload, RecordsBelongToTheServiceAndKeyTheyWereMadeFor) {
    const auto bytes = randomBytes(3 * kMiB, 22);
    auto path = makeFile("moved.bin", bytes);
    const auto first = interruptedRun(path, "in/moved.bin");
    ASSERT_FALSE(first.empty());

    emulator::CloudEmulator other;
    ASSERT_TRUE(other.start());
    Rerun elsewhere;
    ASSERT_NO_FATAL_FAILURE(runAgain(elsewhere, path, "in/moved.bin", &other));
    EXPECT_TRUE(other.requests("ListParts").empty()) << "asked the other service for the first one's upload";
    EXPECT_EQ(other.objectBytes(other.options().bucket, "in/moved.bin"), bytes);
    EXPECT_TRUE(elsewhere.resumed.empty());
    Rerun otherKey;
    ASSERT_NO_FATAL_FAILURE(runAgain(otherKey, path, "in/b.bin"));
    EXPECT_TRUE(otherKey.resumed.empty());
    EXPECT_EQ(cloud.objectBytes(bucket(), "in/b.bin"), bytes);

    // The first service's upload was left alone and is continued by a run against it.
    EXPECT_EQ(cloud.upload(first)->state, emulator::UploadState::Open);
    Rerun back;
    ASSERT_NO_FATAL_FAILURE(runAgain(back, path, "in/moved.bin"));
    EXPECT_EQ(back.resumed, std::vector<std::uint64_t>{kMiB});
    EXPECT_EQ(cloud.upload(first)->state, emulator::UploadState::Completed);
    EXPECT_EQ(storedParts(first), (std::map<int, int>{{1, 1}, {2, 1}, {3, 1}}));
    EXPECT_EQ(cloud.objectBytes(bucket(), "in/moved.bin"), bytes);
    EXPECT_EQ(elsewhere.restarts + otherKey.restarts + back.restarts, 0);
}

// Records that are not records: each is dropped and the upload goes on; nothing blocks, nothing is read
// past the bound, and the failure of a step never leaves the host waiting.
TEST_F(RecordedUpload, FifoSymlinkAndOversizedRecordsAreDroppedNotRead) {
    struct Case {
        std::string name;
        std::function<void(const std::string&)> make;
    };
    const std::vector<Case> cases = {
        {"fifo", [](const std::string& at) { ASSERT_EQ(::mkfifo(at.c_str(), 0600), 0); }},
        {"zero", [](const std::string& at) { ASSERT_EQ(::symlink("/dev/zero", at.c_str()), 0); }},
        {"huge", [](const std::string& at) { std::ofstream(at) << std::string(3 * kMiB, '{'); }},
    };
    ASSERT_TRUE(initSts(client));
    std::filesystem::create_directories(dir.file("records"));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto bytes = randomBytes(kMiB + 7, 24);
        auto path = makeFile(c.name + ".bin", bytes);
        const std::string key = "in/" + c.name + ".bin";
        // Put where the record of this very upload belongs.
        std::string why;
        const auto name = oss::checkpointFileName(oss::checkpointEndpoint(*oss::parseEndpoint(cloud.endpoint(), false, &why)),
                                                  bucket(), key, path);
        c.make(dir.file("records/" + name));
        const int finishedBefore = listener.count("finish");
        ASSERT_TRUE(client->addFile(path, cloud.endpoint(), bucket(), key));
        if (client->state() != VODClientState::Started) {
            ASSERT_TRUE(client->start());
        }
        ASSERT_TRUE(listener.waitFor("finish", finishedBefore + 1, 60s));
        EXPECT_EQ(cloud.objectBytes(bucket(), key), bytes);
        EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(dir.file("records/" + name))));
    }
    EXPECT_EQ(listener.count("failure"), 0);
}

// Uploads that nothing could ever continue are aborted, not left open: the one a record names that is
// not readable as a record, and those of files deleted after an interrupted run.
TEST_F(RecordedUpload, UploadsOfDroppedRecordsAndOfGoneFilesAreAborted) {
    const auto bytes = randomBytes(2 * kMiB, 25);
    auto path = makeFile("mangled.bin", bytes);
    const auto mangled = interruptedRun(path, "in/mangled.bin");
    ASSERT_FALSE(mangled.empty());
    // The record loses a field it needs, but still names its upload.
    std::string recordPath;
    for (const auto& entry : std::filesystem::directory_iterator(dir.file("records"))) recordPath = entry.path();
    auto text = foundation::readFile(recordPath).value_or("");
    auto doc = foundation::parseJson(text);
    ASSERT_TRUE(doc);
    doc->erase("partSize");
    ASSERT_TRUE(foundation::writeFileAtomically(recordPath, foundation::toJsonText(*doc)));

    // A second file is interrupted too, then deleted.
    auto goneFile = makeFile("deleted.bin", randomBytes(2 * kMiB, 26));
    useClient(VODUploadClient::create(services()));
    const auto gone = interruptedRun(goneFile, "in/deleted.bin");
    ASSERT_FALSE(gone.empty());
    ASSERT_TRUE(std::filesystem::remove(goneFile));

    Rerun again;
    ASSERT_NO_FATAL_FAILURE(runAgain(again, path, "in/mangled.bin"));
    EXPECT_EQ(cloud.objectBytes(bucket(), "in/mangled.bin"), bytes);
    EXPECT_EQ(cloud.upload(mangled)->state, emulator::UploadState::Aborted);
    EXPECT_EQ(cloud.upload(gone)->state, emulator::UploadState::Aborted);
    EXPECT_EQ(openUploads(), 0u);
    EXPECT_EQ(recordCount(), 0u);
}

// A file deleted while its upload runs: the file fails, and its upload and record go with it.
TEST_F(FileIntegrity, FileDeletedDuringItsUploadLeavesNoUploadNorRecord) {
    auto path = makeFile("vanishing.bin", randomBytes(3 * kMiB, 27));
    initChangingAtFirstProgress([&] { std::filesystem::remove(path); });
    ASSERT_TRUE(addAndStart(path, "in/vanishing.bin"));
    ASSERT_TRUE(listener.waitFor("failure"));
    EXPECT_FALSE(cloud.object(bucket(), "in/vanishing.bin"));
    EXPECT_EQ(openUploads(), 0u);
    std::error_code ec;
    EXPECT_TRUE(std::filesystem::is_empty(dir.file("records"), ec));
}
