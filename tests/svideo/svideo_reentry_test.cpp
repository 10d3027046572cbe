// Nothing in the client waits: a delegate calls back into it from inside its callbacks, a job's file
// goes to an engine that is still ending a cancelled run without waiting for it or stopping it, and a
// host reads the settings from any thread while they change.
#include <atomic>
#include <thread>

#include "foundation/log.h"
#include "oss/oss_log.h"
#include "svideo_test_support.h"

using namespace quorvane;
using namespace quorvane::test;

using SVideoReentry = SVideoCloudTest;

TEST_F(SVideoReentry, DelegateRefreshesAndStartsTheNextJobFromInsideItsCallbacks) {
    // The first job's video slot meets an expired token, then its clip fails on its second part.
    cloud.addFault(Fault::error("CreateUploadVideo", 403, "InvalidSecurityToken.Expired"));
    std::vector<Fault> script(coverParts() + 1, Fault::delay("UploadPart", 0));
    script.push_back(Fault::error("UploadPart", 400, "InvalidArgument", "The clip part was refused."));
    cloud.addFaults(script);
    const auto fresh = cloud.issueSts();
    // What the delegate saw of the client right after each call; written on the client's queue.
    std::vector<std::string> inside;
    delegate->onEvent = [&](const std::string& event) {
        if (event == "expired") {
            inside.push_back("expired at step " + std::to_string(client->step()) + " status " +
                             std::to_string(client->status()));
            client->refreshWithAccessKeyId(fresh.AccessKeyId, fresh.AccessKeySecret, fresh.SecurityToken,
                                           fresh.Expiration);
            inside.push_back("refreshed at step " + std::to_string(client->step()));
        } else if (event == "failed") {
            const bool started = start();
            inside.push_back(std::string(started ? "started" : "refused") + " at step " +
                             std::to_string(client->step()));
        }
    };
    ASSERT_TRUE(start());
    ASSERT_TRUE(delegate->waitFor("result"));
    // Parked at step 4 by the expired video slot; the refresh asks for the slot again at once.
    EXPECT_EQ(inside, (std::vector<std::string>{"expired at step 4 status 0", "refreshed at step 5",
                                                "started at step 1"}));
    const auto events = delegate->events();
    const auto expired = std::find(events.begin(), events.end(), "expired");
    const auto failed = std::find(events.begin(), events.end(), "failed");
    EXPECT_LT(expired, failed);
    EXPECT_EQ(delegate->failures().at(0).first, "InvalidArgument");
    EXPECT_EQ(events.back(), "result");
    EXPECT_TRUE(idle());
    EXPECT_EQ(cloud.requests("CreateUploadImage").size(), 2u);  // one cover per job, none again on refresh
    const auto video = videoWithId(delegate->results().at(0).videoId);
    EXPECT_EQ(cloud.objectBytes(video.bucket, video.objectKey), bytesOf(clip));
}

TEST_F(SVideoReentry, NextJobsCoverWaitsInTheEngineBehindACancelledRunWithoutStoppingIt) {
    oss::OSSLog::enableLog();
    foundation::LogCapture log;
    for (int i = 0; i < 4; ++i) cloud.addFault(Fault::delay("UploadPart", 1000));
    ASSERT_TRUE(start());
    ASSERT_TRUE(waitUntil([&] { return storedParts("image/") >= 1; }));
    client->cancel();
    ASSERT_TRUE(start());

    // The engine ends a cancelled run on the main loop, held here: the new job still gets its slot
    // and queues its cover behind that run.
    ASSERT_TRUE(waitHoldingMainLoop([&] {
        const auto files = client->client()->listFiles();
        return client->step() == 3 && files.size() == 1;
    }));
    EXPECT_EQ(client->client()->listFiles().at(0)->state, UploadFileState::Ready);
    EXPECT_EQ(client->client()->state(), VODClientState::Started);
    EXPECT_EQ(client->status(), VODUploadSVideoClient::kStatusUploading);

    // Once the engine ends the cancelled run, its own next step takes the cover.
    cloud.clearFaults();
    ASSERT_TRUE(delegate->waitFor("result"));
    oss::OSSLog::disableLog();
    EXPECT_FALSE(log.contains("stop called."));
    EXPECT_EQ(delegate->count("failed"), 0);
    const auto heard = delegate->results().at(0);
    const auto images = cloud.images();
    ASSERT_EQ(images.size(), 2u);
    EXPECT_EQ(heard.imageUrl, images[1].imageURL);
    EXPECT_EQ(cloud.objectBytes(images[1].bucket, images[1].objectKey), bytesOf(cover));
    EXPECT_FALSE(cloud.object(images[0].bucket, images[0].objectKey));
}

// Each read sees one whole value that was set, never a torn one; ThreadSanitizer reports any read
// that is not ordered with the setter's write.
TEST_F(SVideoReentry, SettingsAreReadFromAnotherThreadWhileTheyAreSet) {
    // Both longer than a short-string buffer, so a torn copy reads freed memory.
    const std::string regions[] = {"cn-shanghai-settings-race-region-one", "cn-shanghai-settings-race-region-two"};
    const std::string apps[] = {"app-settings-race-one-with-a-long-id", "app-settings-race-two-with-a-long-id"};
    client->setRegion(regions[0]);
    client->setAppId(apps[0]);
    std::atomic<bool> done{false};
    foundation::Semaphore readerStarted;
    std::vector<std::string> torn;
    std::thread reader([&] {
        readerStarted.signal();
        while (!done) {
            const std::string region = client->region();
            const std::string app = client->appId().value_or("none");
            if (region != regions[0] && region != regions[1]) torn.push_back(region);
            if (app != apps[0] && app != apps[1]) torn.push_back(app);
            if (!client->delegate()) torn.push_back("no delegate");
        }
    });
    readerStarted.wait();
    for (int i = 1; i <= 1000; ++i) {
        client->setRegion(regions[i % 2]);
        client->setAppId(apps[i % 2]);
        client->setDelegate(delegate);
    }
    done = true;
    reader.join();
    EXPECT_TRUE(torn.empty()) << torn.size() << " torn reads, the first: " << torn.front();
    EXPECT_EQ(client->region(), regions[0]);
    EXPECT_EQ(client->appId(), apps[0]);
}
