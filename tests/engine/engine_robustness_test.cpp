// What a careless host does to the engine: no callbacks at all, a callback that throws, and letting go
// of the client while it uploads. None of it may crash or hang.
#include <stdexcept>

#include "engine_cloud_support.h"

using namespace quorvane;
using namespace quorvane::test;

namespace {

using CarelessHost = EngineCloudTest;

TEST_F(CarelessHost, AListenerWithoutCallbacksStillGetsTheFileUploaded) {
    ASSERT_TRUE(client->init(sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken, sts.Expiration,
                             std::make_shared<VODUploadListener>()));
    cloud.addFault(Fault::reset("UploadPart", 1000));  // a retry, and its retryResume, with nobody to tell
    const auto bytes = randomBytes(3 << 20, 70);
    ASSERT_TRUE(addAndStart(makeFile("quiet.bin", bytes), "up/quiet.bin"));
    ASSERT_TRUE(waitUntil([&] { return client->state() == VODClientState::Finished; }));
    EXPECT_EQ(client->listFiles()[0]->state, UploadFileState::Success);
    EXPECT_EQ(cloud.objectBytes(bucket(), "up/quiet.bin"), bytes);
}

// The throw would otherwise end in the queue, and the host would wait for the file for ever.
TEST_F(CarelessHost, AListenerThatThrowsFailsItsFileInsteadOfStallingTheQueue) {
    auto throwing = listener.make();
    throwing->started = [](const auto&) { throw std::runtime_error("the host's bug"); };
    ASSERT_TRUE(client->init(sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken, sts.Expiration, throwing));
    ASSERT_TRUE(addAndStart(makeFile("thrown.bin", randomBytes(1 << 20, 72)), "up/thrown.bin"));
    ASSERT_TRUE(listener.waitFor("failure"));
    const auto failure = listener.failures().at(0);
    EXPECT_EQ(failure.first, "ExceptionCaught");
    EXPECT_NE(failure.second.find("the host's bug"), std::string::npos) << failure.second;
    EXPECT_EQ(client->listFiles().at(0)->state, UploadFileState::Failure);
    EXPECT_TRUE(cloud.requests("UploadPart").empty());
}

TEST_F(CarelessHost, ClientLetGoMidUploadStopsWithoutCallingBack) {
    ASSERT_TRUE(initSts(client));
    for (int i = 0; i < 8; ++i) cloud.addFault(Fault::delay("UploadPart", 300));
    ASSERT_TRUE(addAndStart(makeFile("dropped.bin", randomBytes(4 << 20, 71)), "up/dropped.bin"));
    ASSERT_TRUE(listener.waitFor("progress"));
    std::weak_ptr<VODUploadEngine> weak = VODUploadClientInternals::shared(*client);
    client.reset();  // the host's last reference
    EXPECT_TRUE(waitUntil([&] { return weak.expired(); }, 30s));
    const auto heard = listener.events().size();
    // Whatever was under way ends without reaching a listener whose client is gone.
    waitUntil([] { return false; }, 1500ms);
    EXPECT_EQ(listener.events().size(), heard);
    EXPECT_EQ(listener.count("finish"), 0);
}

}  // namespace
