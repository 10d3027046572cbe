// Events against the cloud emulator's log service, as the engine sends them: the args arrive as one
// block the service decodes once (the envelope's values are checked against a plain server elsewhere).
#ifdef QUORVANE_TEST_WITH_EMULATOR
#include <gtest/gtest.h>

#include <thread>

#include "VODUpload/src/AVCVEventManager.h"
#include "VODUpload/src/AVCVEventTransport.h"
#include "device/reachability_test_support.h"
#include "emulator/cloud_emulator.h"
#include "telemetry/log_service_server.h"

using namespace quorvane;

TEST(EventsOnEmulator, LogServiceRecordsTheEnvelopeAndTheDecodedArgs) {
    test::ScriptedReachability reachability;
    emulator::CloudEmulator cloud;
    ASSERT_TRUE(cloud.start());
    AVCVEventManager::setLogServiceEndpoint(cloud.endpoint());
    auto transport = test::makeTransport();
    auto upload = AVCVEventManager::sharedManager()->newInstance("upload");
    upload->setTransport(transport);
    const Value common = {{AVCVEventProductKey, AVCVEventProductUpload},
                          {AVCVEventModuleKey, AVCVEventModuleUploader},
                          {AVCVEventSubModuleKey, AVCVEventSubModuleUpload},
                          {AVCVEventVersionKey, "1.6.5"}};
    upload->sendEvent(1001, Value{{"fs", 1024}, {"ft", "video/mp4"}}, common);
    upload->sendEvent(1002, Value(), common);
    ASSERT_TRUE(transport->waitUntilIdle(std::chrono::seconds(30)));
    const auto events = cloud.logEvents();
    ASSERT_EQ(events.size(), 2u);
    std::map<std::string, Value> byEvent;
    for (const auto& event : events) {
        EXPECT_EQ(event.logstore, "upload");
        byEvent[event.params.value("e", "")] = event.params;
    }
    const Value& first = byEvent["1001"];
    EXPECT_EQ(first.value("APIVersion", ""), "0.6.0");
    EXPECT_EQ(first.value("args", ""), "fs=1024&ft=video/mp4");  // one block, decoded once by the service
    EXPECT_EQ(first.value("sm", ""), "upload");
    EXPECT_EQ(first.size(), 26u);  // APIVersion + 19 envelope entries + 4 common + args + e
    EXPECT_EQ(byEvent["1002"].value("args", "<missing>"), "");
    upload.reset();
    transport.reset();  // closes its connections before the emulator stops
    AVCVEventManager::setLogServiceEndpoint("");
}
#endif
