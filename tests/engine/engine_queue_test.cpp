// The file queue and its run control: refusals, the halt after a failed file, and the stop/start
// and cancel behaviour of a running upload against the emulator.
#include "engine_cloud_support.h"
#include "foundation/log.h"
#include "oss/oss_log.h"

using namespace quorvane;
using namespace quorvane::test;

namespace {

// Turns the engine's debug lines on for one test and captures them.
struct EngineLog {
    EngineLog() { oss::OSSLog::enableLog(); }
    ~EngineLog() { oss::OSSLog::disableLog(); }
    foundation::LogCapture capture;
};

}  // namespace

// After a failed file the queue halts: the client stays Started and the later files Ready until the
// caller moves it on; nothing moves by itself, so a waiter is answered at once.
TEST(FileQueue, AFileOfNoMediaTypeFailsAndHaltsTheQueue) {
    TempDir dir;
    writeFile(dir.file("notes.txt"), "text");
    writeFile(dir.file("clip.mp4"), "not yet registered");
    writeFile(dir.file("later.mp4"), "movie");
    RecordingListener listener;
    auto client = VODUploadClient::create();
    client->init(listener.make());
    EngineLog log;
    ASSERT_TRUE(client->addFile(dir.file("notes.txt"), nullptr));
    ASSERT_TRUE(client->addFile(dir.file("clip.mp4"), nullptr));

    ASSERT_TRUE(client->start());
    ASSERT_TRUE(client->addFile(dir.file("later.mp4"), nullptr));  // nor does a file added now move it
    EXPECT_TRUE(client->waitUntilSettled(std::chrono::minutes(10)));
    EXPECT_EQ(listener.events(), (std::vector<std::string>{"started", "failure"}));
    EXPECT_EQ(listener.failures().at(0),
              std::make_pair(std::string("400"),
                             std::string("upload file path has no extension or extension type is not video/image")));
    EXPECT_EQ(client->listFiles()[0]->state, UploadFileState::Failure);
    EXPECT_EQ(client->state(), VODClientState::Started);
    EXPECT_EQ(client->listFiles()[1]->state, UploadFileState::Ready);
    EXPECT_EQ(client->listFiles()[2]->state, UploadFileState::Ready);
    EXPECT_FALSE(client->start());
    EXPECT_TRUE(log.capture.contains("VODUpload/src/VODUploadClient [Debug]: start called."));
    EXPECT_TRUE(log.capture.contains("[Debug]: addFile called." + dir.file("clip.mp4")));
    ASSERT_TRUE(client->stop());
    EXPECT_TRUE(client->waitUntilSettled(0ms));
}

TEST(FileQueue, EmptyQueueFinishesAtOnceWithoutListenerCalls) {
    RecordingListener listener;
    auto client = VODUploadClient::create();
    client->init(listener.make());
    EXPECT_TRUE(client->waitUntilSettled(0ms));  // Idle
    EXPECT_TRUE(client->start());
    EXPECT_EQ(client->state(), VODClientState::Finished);
    EXPECT_TRUE(client->waitUntilSettled(0ms));
    EXPECT_TRUE(listener.events().empty());
}

TEST(FileQueue, RefusedCallsChangeNothingButStillLog) {
    TempDir dir;
    writeFile(dir.file("a.mp4"), "a");
    auto client = VODUploadClient::create();
    EngineLog log;
    EXPECT_FALSE(client->addFile("", nullptr));
    EXPECT_FALSE(client->addFile(dir.file("a.mp4"), "http://127.0.0.1:1", "", "key"));
    ASSERT_TRUE(client->addFile(dir.file("a.mp4"), "http://127.0.0.1:1", "bucket", "key"));
    EXPECT_EQ(client->listFiles().size(), 1u);

    EXPECT_FALSE(client->pause());   // Idle
    EXPECT_FALSE(client->resume());  // Idle
    EXPECT_FALSE(client->stop());    // Idle
    EXPECT_FALSE(client->deleteFile(-1));
    EXPECT_FALSE(client->deleteFile(1));
    EXPECT_FALSE(client->cancelFile(1));
    EXPECT_FALSE(client->resumeFile(0));  // Ready, not Canceled
    EXPECT_TRUE(log.capture.contains("[Debug]: deleteFile called.-1"));
    EXPECT_TRUE(log.capture.contains("[Debug]: resumeFile called.0"));

    VODUploadClientTestAccess::setState(*client, VODClientState::Paused);
    EXPECT_FALSE(client->pause());
    VODUploadClientTestAccess::setState(*client, VODClientState::Started);
    EXPECT_FALSE(client->resume());
    EXPECT_TRUE(client->stop());
    EXPECT_TRUE(log.capture.contains("[Debug]: No runnning upload request."));
    EXPECT_FALSE(client->pause());  // Stopped

    client->listFiles()[0]->state = UploadFileState::Success;
    EXPECT_FALSE(client->cancelFile(0));
    EXPECT_EQ(client->listFiles()[0]->state, UploadFileState::Success);
    EXPECT_EQ(client->state(), VODClientState::Stopped);
}

TEST(FileQueue, ResumeFileRestartsOnlyAFinishedQueue) {
    TempDir dir;
    writeFile(dir.file("a.txt"), "a");
    writeFile(dir.file("b.txt"), "b");
    RecordingListener listener;
    auto client = VODUploadClient::create();
    client->init(listener.make());
    client->addFile(dir.file("a.txt"), nullptr);
    ASSERT_TRUE(client->cancelFile(0));
    EXPECT_FALSE(client->cancelFile(0));  // already Canceled
    ASSERT_TRUE(client->start());
    ASSERT_EQ(client->state(), VODClientState::Finished);
    EXPECT_TRUE(listener.events().empty());

    ASSERT_TRUE(client->resumeFile(0));
    EXPECT_EQ(client->state(), VODClientState::Started);
    EXPECT_EQ(listener.events(), (std::vector<std::string>{"started", "failure"}));  // a.txt is picked again

    ASSERT_TRUE(client->stop());
    client->addFile(dir.file("b.txt"), nullptr);
    ASSERT_TRUE(client->cancelFile(1));
    ASSERT_TRUE(client->resumeFile(1));
    EXPECT_EQ(client->listFiles()[1]->state, UploadFileState::Ready);
    EXPECT_EQ(client->state(), VODClientState::Stopped);  // only made Ready: nothing starts
    EXPECT_EQ(listener.events().size(), 2u);
}

class RunningQueue : public EngineCloudTest {
protected:
    void SetUp() override {
        EngineCloudTest::SetUp();
        ASSERT_TRUE(initSts(client));
        VODUploadEngineTestAccess::setMaxConcurrentParts(*client, 1);
        // Slow parts leave time to act while the first file is under way.
        for (int i = 0; i < 6; ++i) cloud.addFault(Fault::delay("UploadPart", 400));
    }
};

TEST_F(RunningQueue, StopThenStartTakesTheNextReadyFileAndLeavesTheFirstUploading) {
    auto first = makeFile("first.bin", randomBytes(3 << 20, 1));
    auto second = makeFile("second.bin", randomBytes(200 << 10, 2));
    ASSERT_TRUE(client->addFile(first, cloud.endpoint(), bucket(), "queue/first.bin"));
    ASSERT_TRUE(addAndStart(second, "queue/second.bin"));
    ASSERT_TRUE(listener.waitFor("progress"));
    ASSERT_TRUE(client->stop());
    EXPECT_EQ(client->state(), VODClientState::Stopped);
    ASSERT_TRUE(waitForCancelledRun());

    ASSERT_TRUE(client->start());
    ASSERT_TRUE(listener.waitFor("finish"));
    ASSERT_TRUE(waitUntil([&] { return client->state() == VODClientState::Finished; }));
    EXPECT_EQ(client->listFiles()[0]->state, UploadFileState::Uploading);
    EXPECT_EQ(client->listFiles()[1]->state, UploadFileState::Success);
    EXPECT_EQ(listener.files().back(), second);
    EXPECT_EQ(cloud.objectBytes(bucket(), "queue/second.bin"), randomBytes(200 << 10, 2));
    EXPECT_FALSE(cloud.object(bucket(), "queue/first.bin"));
    EXPECT_EQ(listener.count("failure"), 0);
}

TEST_F(RunningQueue, CancelledCurrentFileStillCompletes) {
    auto path = makeFile("only.bin", randomBytes(2 << 20, 3));
    ASSERT_TRUE(addAndStart(path, "queue/only.bin"));
    ASSERT_TRUE(listener.waitFor("progress"));
    ASSERT_TRUE(client->cancelFile(0));
    EXPECT_EQ(client->listFiles()[0]->state, UploadFileState::Canceled);

    ASSERT_TRUE(listener.waitFor("finish"));
    EXPECT_EQ(client->listFiles()[0]->state, UploadFileState::Success);
    EXPECT_EQ(listener.count("success"), 1);
    EXPECT_EQ(cloud.objectBytes(bucket(), "queue/only.bin"), randomBytes(2 << 20, 3));
    // One event per queue step: the added file, then each pick (the second pick finds nothing).
    auto added = eventsWithCode("20001");
    ASSERT_EQ(added.size(), 2u);
    for (const auto& e : added) EXPECT_EQ(e.value("args", ""), "ql=1");
}

// A request cancelled by deleteFile, stop or pause reports its end later; by then another file or
// another request of the same file may be under way, and the late report must not touch it.
TEST_F(RunningQueue, ALateCancellationLeavesTheFileNowUnderWayAlone) {
    auto first = makeFile("first.bin", randomBytes(3 << 20, 4));
    auto second = makeFile("second.bin", randomBytes(200 << 10, 5));
    ASSERT_TRUE(client->addFile(first, cloud.endpoint(), bucket(), "queue/first.bin"));
    ASSERT_TRUE(addAndStart(second, "queue/second.bin"));
    ASSERT_TRUE(listener.waitFor("progress"));
    ASSERT_TRUE(client->deleteFile(0));  // the second file starts before the first's request has ended
    ASSERT_TRUE(waitForCancelledRun());
    ASSERT_TRUE(listener.waitFor("finish"));
    ASSERT_TRUE(waitUntil([&] { return client->state() == VODClientState::Finished; }));
    ASSERT_EQ(client->listFiles().size(), 1u);
    EXPECT_EQ(client->listFiles()[0]->state, UploadFileState::Success);
    EXPECT_EQ(listener.files().back(), second);
    EXPECT_EQ(cloud.objectBytes(bucket(), "queue/second.bin"), randomBytes(200 << 10, 5));
    EXPECT_EQ(listener.count("failure"), 0);

    // Pause and resume at once: the paused request ends after the resumed one began.
    auto third = makeFile("third.bin", randomBytes(2 << 20, 6));
    for (int i = 0; i < 6; ++i) cloud.addFault(Fault::delay("UploadPart", 400));
    ASSERT_TRUE(addAndStart(third, "queue/third.bin"));
    ASSERT_TRUE(listener.waitFor("progress", listener.count("progress") + 1));
    ASSERT_TRUE(client->pause());
    ASSERT_TRUE(client->resume());
    ASSERT_TRUE(listener.waitFor("finish", 2));
    ASSERT_TRUE(waitUntil([&] { return client->state() == VODClientState::Finished; }));
    EXPECT_EQ(client->listFiles()[1]->state, UploadFileState::Success);
    EXPECT_EQ(listener.files().back(), third);
    EXPECT_EQ(cloud.objectBytes(bucket(), "queue/third.bin"), randomBytes(2 << 20, 6));
    EXPECT_EQ(listener.count("failure"), 0);
}
