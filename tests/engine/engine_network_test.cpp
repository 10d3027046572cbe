// The engine on bad networks, with real sockets: a service that accepts connections and never
// answers is noticed and reported, and a slow link that still moves bytes is never cut.
#include "engine_cloud_support.h"
#include "support/net_faults.h"

using namespace quorvane;
using namespace quorvane::test;

namespace {

class BadNetwork : public EngineCloudTest {
protected:
    void SetUp() override {
        EngineCloudTest::SetUp();
        initClient();
    }
    void initClient() {
        ASSERT_TRUE(initSts(client));
        client->setTimeoutIntervalForRequest(1);
        client->setMaxRetryCount(1);
    }
};

TEST_F(BadNetwork, SilentObjectStorageIsRetriedThenFailsInsteadOfHanging) {
    SilentServer silent;
    auto path = makeFile("silent.bin", randomBytes(300 * 1024, 60));
    ASSERT_TRUE(client->addFile(path, silent.endpoint(), bucket(), "up/silent.bin") && client->start());
    // Two engine attempts of three object-storage attempts, each given up after a second of silence.
    ASSERT_TRUE(listener.waitFor("failure", 1, 60s)) << "still waiting on a silent service";
    EXPECT_EQ(listener.folded(), (std::vector<std::string>{"started", "retry", "failure"}));
    EXPECT_EQ(listener.failures().at(0).first, "6");  // a network error
    EXPECT_GE(silent.connectionsAccepted(), 6);
    EXPECT_EQ(client->listFiles()[0]->state, UploadFileState::Failure);
}

TEST_F(BadNetwork, SilentVideoServiceFailsTheFile) {
    SilentServer silent;
    // A client of its own, made with the silent service and a one-second idle time-out.
    VODServiceConfig config = services();
    config.vodBaseUrl = silent.endpoint() + "/";
    config.idleTimeoutSeconds = 1;
    client->stop();
    useClient(VODUploadClient::create(config));
    initClient();
    auto info = std::make_shared<VodInfo>();
    info->title = "silent";
    ASSERT_TRUE(addAndStart(makeFile("silent.mp4", randomBytes(64 * 1024, 61)), info));
    ASSERT_TRUE(listener.waitFor("failure", 1, 30s)) << "still waiting on a silent video service";
    EXPECT_EQ(listener.folded(), (std::vector<std::string>{"started", "failure"}));
    EXPECT_EQ(listener.failures().at(0).first, "28");  // the transport's time-out
    EXPECT_EQ(silent.connectionsAccepted(), 1);
}

TEST_F(BadNetwork, SlowLinkCompletesEveryPartWithoutARetry) {
    // 16 KiB/s: the first 100 KiB part takes six seconds while no second passes without bytes. A cap
    // on the whole request of the time-out plus a second per 64 KiB of body would cut it.
    ThrottledProxy slow(static_cast<std::uint16_t>(cloud.port()), 16 * 1024);
    client->setTimeoutIntervalForRequest(2);
    VODUploadEngineTestAccess::setMaxConcurrentParts(*client, 1);
    client->setUploadPartSize(100 * 1024);
    const auto bytes = randomBytes(150 * 1024, 62);
    auto path = makeFile("slow.bin", bytes);
    ASSERT_TRUE(client->addFile(path, slow.endpoint(), bucket(), "up/slow.bin") && client->start());
    ASSERT_TRUE(listener.waitFor("finish", 1, 90s));
    EXPECT_EQ(listener.count("retry"), 0);
    EXPECT_EQ(listener.count("failure"), 0);
    EXPECT_EQ(cloud.requests("UploadPart").size(), 2u);
    EXPECT_EQ(cloud.objectBytes(bucket(), "up/slow.bin"), bytes);
}

}  // namespace
