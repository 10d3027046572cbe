// The event manager: the envelope of each event sent to the log service, request ids, disabled
// managers, a log service that stalls or is gone, and events against the cloud emulator's log service,
// where the args arrive as one block the service decodes once.
#include <gtest/gtest.h>

#include <future>
#include <map>
#include <regex>
#include <string>

#include "VODUpload/src/AVCVEventManager.h"
#include "VODUpload/src/AVCVEventTransport.h"
#include "VODUpload/src/AVCVSystemInfo.h"
#include "device/reachability_test_support.h"
#ifdef QUORVANE_TEST_WITH_EMULATOR
#include "emulator/cloud_emulator.h"
#endif
#include "telemetry/log_service_server.h"

using namespace quorvane;
using namespace quorvane::platform;

namespace {

constexpr auto kWait = std::chrono::seconds(60);
constexpr int kEvents = 1000;

class EventManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        reachability_->setFlags(kReachabilityFlagsReachable);  // Wi-Fi
        AVCVSystemInfo::setBundleInfo("com.quorvane.demo", "Quorvane Demo", "demo");
        manager_->setEndpoint(server_.endpoint());
        manager_->setTransport(transport_);
    }

    const Value common_ = {{AVCVEventProductKey, AVCVEventProductUpload}, {AVCVEventModuleKey, AVCVEventModuleUploader},
                           {AVCVEventSubModuleKey, AVCVEventSubModuleUpload}, {AVCVEventVersionKey, "1.6.5"}};
    test::ScriptedReachability reachability_;
    test::LogServiceServer server_;
    std::shared_ptr<AVCVEventTransport> transport_ = test::makeTransport();
    std::shared_ptr<AVCVEventManager> manager_ = std::make_shared<AVCVEventManager>();
};

std::string valueOf(const std::vector<std::pair<std::string, std::string>>& pairs, const std::string& key) {
    for (const auto& pair : pairs)
        if (pair.first == key) return pair.second;
    return "<missing>";
}

}  // namespace

TEST_F(EventManagerTest, EventArrivesWithTheEnvelopeInOrderAndItsArgsEscapedAsOneBlock) {
    manager_->setLogstore("upload");
    manager_->sendEvent(1001, Value{{"a", "1 2"}}, common_);
    ASSERT_TRUE(server_.waitForRequests(1, kWait));
    const auto request = server_.received().at(0);
    EXPECT_EQ(request.logstore, "upload");
    const auto pairs = test::queryPairs(request.rawQuery);
    std::vector<std::string> keys;
    for (const auto& pair : pairs) keys.push_back(pair.first);
    EXPECT_EQ(keys, (std::vector<std::string>{"APIVersion", "t", "ll", "lv", "hn", "bi", "ri", "app_id", "tt", "dm",
                                              "uuid", "ua", "dn", "cdn_ip", "r", "app_n", "uat", "os", "ov", "co", "pd",
                                              "md", "sm", "av", "args", "e"}));
    EXPECT_TRUE(std::regex_match(valueOf(pairs, "t"), std::regex("[0-9]{13}")));
    const std::pair<const char*, std::string> values[] = {
        {"APIVersion", "0.6.0"}, {"ll", "debug"}, {"lv", "1"}, {"hn", "0.0.0.0"}, {"ri", manager_->requestID()},
        {"app_id", "com.quorvane.demo"}, {"app_n", "Quorvane%20Demo"}, {"tt", "phone"}, {"r", "aliyun"}, {"os", "iOS"},
        {"co", "wifi"}, {"pd", "upload"}, {"md", "uploader"}, {"av", "1.6.5"}, {"args", "a%3D1%202"}, {"e", "1001"}};
    for (const auto& [key, value] : values) EXPECT_EQ(valueOf(pairs, key), value) << key;
    EXPECT_EQ(valueOf(pairs, "bi") + valueOf(pairs, "ua") + valueOf(pairs, "uat"), "");
}

TEST_F(EventManagerTest, CommonValuesGoIntoTheUrlAsSuppliedCellularIsCellnetworkAndRequestIdStaysUntilRefreshed) {
    reachability_->setFlags(kReachabilityFlagsReachable | kReachabilityFlagsIsWWAN);
    reachability_->setRadioAccessTechnology(CTRadioAccessTechnologyLTE);
    const std::string url = manager_->eventUrl(7, Value(), Value{{"note", "x y"}, {"ll", "info"}});
    EXPECT_EQ(url.rfind(server_.endpoint() + "/logstores/svideo/track?APIVersion=0.6.0&t=", 0), 0u) << url;
    EXPECT_NE(url.find("&ll=info&"), std::string::npos);  // a common entry replaces the envelope's in place
    EXPECT_NE(url.find("&co=cellnetwork&note=x y&args=&e=7"), std::string::npos) << url;
    reachability_->setFlags(0);
    EXPECT_NE(manager_->eventUrl(7, Value(), Value()).find("&co=cellnetwork&"), std::string::npos);

    // The request id stays until refreshed.
    manager_->sendEvent(1, Value());
    manager_->sendEvent(2, Value());
    const std::string before = manager_->requestID();
    manager_->refreshRequestID();
    EXPECT_NE(manager_->requestID(), before);
    EXPECT_EQ(manager_->requestID().size(), 36u);
    manager_->sendEvent(3, Value());
    ASSERT_TRUE(server_.waitForRequests(3, kWait));
    std::map<std::string, std::string> riByEvent;
    for (const auto& request : server_.received()) {
        const auto pairs = test::queryPairs(request.rawQuery);
        riByEvent[valueOf(pairs, "e")] = valueOf(pairs, "ri");
    }
    EXPECT_EQ(riByEvent["1"], before);
    EXPECT_EQ(riByEvent["2"], before);
    EXPECT_EQ(riByEvent["3"], manager_->requestID());
}

TEST_F(EventManagerTest, NoEndpointOrADisabledManagerAndItsNewInstancesSendNothing) {
    manager_->setEndpoint("");
    manager_->sendEvent(1, Value());
    EXPECT_EQ(transport_->pending() + transport_->completed(), 0u);
    manager_->setEndpoint(server_.endpoint());

    manager_->setEnabled(false);
    auto upload = manager_->newInstance("upload");
    EXPECT_FALSE(upload->enabled());
    EXPECT_EQ(upload->logstore(), "upload");
    EXPECT_EQ(upload->endpoint(), server_.endpoint());
    for (int i = 0; i < 5; ++i) {
        manager_->sendEvent(i, Value{{"a", i}});
        upload->sendEvent(i, Value{{"a", i}}, common_);
    }
    // A marker from an enabled manager on the same transport shows the queue was served.
    manager_->setEnabled(true);
    manager_->sendEvent(99, Value());
    ASSERT_TRUE(server_.waitForRequests(1, kWait));
    ASSERT_TRUE(transport_->waitUntilIdle(kWait));
    ASSERT_EQ(server_.received().size(), 1u);
    EXPECT_EQ(valueOf(test::queryPairs(server_.received()[0].rawQuery), "e"), "99");
    EXPECT_EQ(transport_->completed(), 1u);
    EXPECT_EQ(transport_->dropped(), 0u);

    // An endpoint without a scheme is taken as https.
    manager_->setEndpoint("log.example.test/");
    EXPECT_EQ(manager_->eventHostUrl(), "https://log.example.test/logstores/svideo/track?APIVersion=0.6.0");

    // The shared manager starts enabled on "svideo", sending nowhere; a dictionary is encoded in its
    // own order.
    auto shared = AVCVEventManager::sharedManager();
    EXPECT_EQ(shared, AVCVEventManager::sharedManager());
    EXPECT_TRUE(shared->enabled());
    EXPECT_EQ(shared->endpoint(), "");
    EXPECT_EQ(shared->logstore(), "svideo");
    EXPECT_TRUE(std::regex_match(shared->requestID(), std::regex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}")));
    EXPECT_EQ(AVCVEventManager::urlEncodingWithDict(Value{{"b", 1.5}, {"a", true}, {"c", nullptr}, {"d", 2.0}}),
              "b=1.5&a=1&c=&d=2");
}

// A stalled log service must cost the caller nothing: every send returns while the service still
// holds the first requests. Only as many requests as there are slots are ever started; every other
// event is dropped and counted, never kept for later, so releasing the service brings exactly those.
TEST(EventBackpressure, StalledLogServiceNeverHoldsTheCallerNothingIsQueuedAndADeadOneLosesEventsQuietly) {
    test::ScriptedReachability reachability;
    test::LogServiceServer server;
    server.hold();
    AVCVEventTransportOptions options;
    options.maxInFlight = 4;
    auto transport = test::makeTransport(options);
    auto manager = std::make_shared<AVCVEventManager>();
    manager->setEndpoint(server.endpoint());
    manager->setTransport(transport);

    // The sends run on their own thread so a caller that blocked would show up as a timeout here
    // rather than as a hung test.
    auto sending = std::async(std::launch::async, [&] {
        for (int i = 0; i < kEvents; ++i) manager->sendEvent(i, Value{{"n", i}});
    });
    const bool returned = sending.wait_for(kWait) == std::future_status::ready;
    ASSERT_TRUE(server.waitForEntered(4, kWait));
    const bool serverStillHeld = server.received().empty();
    const std::uint64_t dropped = transport->dropped();
    const std::size_t pendingWhileHeld = transport->pending();
    server.release();
    sending.wait();

    EXPECT_TRUE(returned);
    EXPECT_TRUE(serverStillHeld);
    EXPECT_EQ(pendingWhileHeld, 4u);
    EXPECT_EQ(dropped, static_cast<std::uint64_t>(kEvents - 4));

    ASSERT_TRUE(transport->waitUntilIdle(kWait));
    EXPECT_EQ(transport->completed(), 4u);
    EXPECT_EQ(server.received().size(), 4u);
    // A free slot takes the next event at once.
    manager->sendEvent(kEvents, Value{{"n", kEvents}});
    ASSERT_TRUE(transport->waitUntilIdle(kWait));
    EXPECT_EQ(server.received().size(), 5u);

    // A log service that is not there at all: requests fail fast, nothing is retried, nothing leaks.
    manager->setEndpoint(test::LogServiceServer().endpoint());  // stopped at once
    auto deadTransport = test::makeTransport();
    manager->setTransport(deadTransport);
    for (int i = 0; i < 20; ++i) manager->sendEvent(i, Value());
    ASSERT_TRUE(deadTransport->waitUntilIdle(kWait));
    EXPECT_EQ(deadTransport->completed() + deadTransport->dropped(), 20u);
}

#ifdef QUORVANE_TEST_WITH_EMULATOR
TEST_F(EventManagerTest, OnTheEmulatorTheLogServiceRecordsTheEnvelopeAndTheDecodedArgs) {
    emulator::CloudEmulator cloud;
    ASSERT_TRUE(cloud.start());
    manager_->setEndpoint(cloud.endpoint());
    auto upload = manager_->newInstance("upload");
    upload->setTransport(transport_);
    upload->sendEvent(1001, Value{{"fs", 1024}, {"ft", "video/mp4"}}, common_);
    upload->sendEvent(1002, Value(), common_);
    ASSERT_TRUE(transport_->waitUntilIdle(kWait));
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
    manager_.reset();
    transport_.reset();  // closes its connections before the emulator stops
}
#endif
