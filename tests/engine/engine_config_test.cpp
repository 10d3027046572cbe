// Per-client service configuration: two engines in one process, each given its own video service and
// log service at creation, talk only to their own; a client given none talks to the system's own.
#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VodInfo.h"
#include "engine_cloud_support.h"
#include "foundation/temp_files.h"
#include "support/media_files.h"

using namespace quorvane;
using namespace quorvane::test;

namespace {

// One engine with its own emulator, clip and log store.
struct Tenant {
    explicit Tenant(std::string name) : name(std::move(name)) {}
    std::string name;
    emulator::CloudEmulator cloud;
    RecordingListener listener;
    std::shared_ptr<VODUploadClient> client;
    std::string clip;
};

class TwoClients : public ::testing::Test {
protected:
    void SetUp() override {
        int frames = 20;
        for (Tenant* t : {&a, &b}) {
            ASSERT_TRUE(t->cloud.start());
            t->clip = dir.file(t->name + "-clip.mp4");
            ASSERT_TRUE(writeClip(t->clip, ClipSpec{.frames = frames++, .bitRate = 2000000}));
            t->client = VODUploadClient::create(servicesAt(t->cloud));
            t->client->setRecordDirectoryPath(dir.file(t->name + "-records"));
            engineOf(*t->client).setRetryWait(20ms);
            t->client->setLogStore("store-" + t->name);
            auto sts = t->cloud.issueSts();
            ASSERT_TRUE(t->client->init(sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken, sts.Expiration,
                                        t->listener.make()));
        }
    }
    void TearDown() override {
        for (Tenant* t : {&a, &b}) {
            if (t->client) t->client->stop();
            t->client.reset();
            VODObjectCache::sharedCache().clearObjectWithPath(t->clip);
        }
        drainEvents();
    }

    TempDir dir;
    Tenant a{"a"}, b{"b"};
};

TEST_F(TwoClients, EachTalksOnlyToTheServicesItWasCreatedWith) {
    for (Tenant* t : {&a, &b}) {
        auto info = std::make_shared<VodInfo>();
        info->title = "clip of " + t->name;
        ASSERT_TRUE(t->client->addFile(t->clip, info));
    }
    // Both run at once, so neither can borrow the other's settings between its steps.
    ASSERT_TRUE(a.client->start());
    ASSERT_TRUE(b.client->start());
    ASSERT_TRUE(a.listener.waitFor("finish"));
    ASSERT_TRUE(b.listener.waitFor("finish"));
    AVCVEventTransport::shared()->waitUntilIdle(20s);

    for (Tenant* t : {&a, &b}) {
        SCOPED_TRACE(t->name);
        const auto& cloud = t->cloud;
        const auto videos = cloud.videos();
        ASSERT_EQ(videos.size(), 1u);
        EXPECT_EQ(videos[0].fileName, t->clip);
        EXPECT_EQ(videos[0].title, "clip of " + t->name);
        EXPECT_EQ(cloud.requests("CreateUploadVideo").size(), 1u);
        EXPECT_EQ(t->listener.results().at(0).videoId, videos[0].videoId);
        EXPECT_EQ(cloud.objectBytes(videos[0].bucket, videos[0].objectKey), foundation::readFile(t->clip));

        const auto reports = cloud.progressReports();
        ASSERT_FALSE(reports.empty());
        for (const auto& r : reports) EXPECT_EQ(r.fields.value("FileName", ""), t->name + "-clip.mp4");

        const auto events = cloud.logEvents();
        ASSERT_FALSE(events.empty());
        for (const auto& e : events) EXPECT_EQ(e.logstore, "store-" + t->name);
    }
}

TEST(ServiceConfig, AClientGivenNoneTalksToTheSystemsOwnServicesAndSendsNoEvent) {
    auto client = VODUploadClient::create();
    EXPECT_EQ(client->serviceConfig().urlForRegion("cn-beijing"), "https://vod.cn-beijing.aliyuncs.com/");
    EXPECT_EQ(client->serviceConfig().effectiveIdleTimeoutSeconds(), 60);
    EXPECT_EQ(engineOf(*client).eventManager()->endpoint(), "");
}

}  // namespace
