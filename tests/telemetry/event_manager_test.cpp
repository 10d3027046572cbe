#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "VODUpload/src/AVCVEventManager.h"
#include "VODUpload/src/AVCVEventTransport.h"
#include "VODUpload/src/AVCVSystemInfo.h"
#include "device/reachability_test_support.h"
#include "telemetry/log_service_server.h"

using namespace quorvane;
using namespace quorvane::platform;

namespace {

constexpr auto kWait = std::chrono::seconds(30);

class EventManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        reachability_->setFlags(kReachabilityFlagsReachable);  // Wi-Fi
        AVCVSystemInfo::setBundleInfo("com.quorvane.demo", "Quorvane Demo", "demo");
        AVCVEventManager::setLogServiceEndpoint(server_.endpoint());
        manager_->setTransport(transport_);
    }
    void TearDown() override { AVCVEventManager::setLogServiceEndpoint(""); }

    const Value common_ = {{AVCVEventProductKey, AVCVEventProductUpload},
                           {AVCVEventModuleKey, AVCVEventModuleUploader},
                           {AVCVEventSubModuleKey, AVCVEventSubModuleUpload},
                           {AVCVEventVersionKey, "1.6.5"}};
    test::ScriptedReachability reachability_;
    test::LogServiceServer server_;
    std::shared_ptr<AVCVEventTransport> transport_ = test::makeTransport();
    std::shared_ptr<AVCVEventManager> manager_ = std::make_shared<AVCVEventManager>();
};

std::vector<std::string> keysOf(const std::vector<std::pair<std::string, std::string>>& pairs) {
    std::vector<std::string> keys;
    for (const auto& pair : pairs) keys.push_back(pair.first);
    return keys;
}

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
    EXPECT_EQ(keysOf(pairs), (std::vector<std::string>{"APIVersion", "t",  "ll",     "lv",   "hn",  "bi",  "ri",
                                                       "app_id",     "tt", "dm",     "uuid", "ua",  "dn",  "cdn_ip",
                                                       "r",          "app_n", "uat", "os",   "ov",  "co",  "pd",
                                                       "md",         "sm", "av",     "args", "e"}));
    EXPECT_EQ(valueOf(pairs, "APIVersion"), "0.6.0");
    EXPECT_TRUE(std::regex_match(valueOf(pairs, "t"), std::regex("[0-9]{13}")));
    EXPECT_EQ(valueOf(pairs, "ll"), "debug");
    EXPECT_EQ(valueOf(pairs, "lv"), "1");
    EXPECT_EQ(valueOf(pairs, "hn"), "0.0.0.0");
    EXPECT_EQ(valueOf(pairs, "ri"), manager_->requestID());
    EXPECT_EQ(valueOf(pairs, "app_id"), "com.quorvane.demo");
    EXPECT_EQ(valueOf(pairs, "app_n"), "Quorvane%20Demo");
    EXPECT_EQ(valueOf(pairs, "tt"), "phone");
    EXPECT_EQ(valueOf(pairs, "r"), "aliyun");
    EXPECT_EQ(valueOf(pairs, "os"), "iOS");
    EXPECT_EQ(valueOf(pairs, "co"), "wifi");
    EXPECT_EQ(valueOf(pairs, "pd"), "upload");
    EXPECT_EQ(valueOf(pairs, "md"), "uploader");
    EXPECT_EQ(valueOf(pairs, "av"), "1.6.5");
    EXPECT_EQ(valueOf(pairs, "args"), "a%3D1%202");
    EXPECT_EQ(valueOf(pairs, "e"), "1001");
    EXPECT_EQ(valueOf(pairs, "bi") + valueOf(pairs, "ua") + valueOf(pairs, "uat"), "");
}

TEST_F(EventManagerTest, CommonValuesGoIntoTheUrlAsSuppliedAndCellularIsCellnetwork) {
    reachability_->setFlags(kReachabilityFlagsReachable | kReachabilityFlagsIsWWAN);
    reachability_->setRadioAccessTechnology(CTRadioAccessTechnologyLTE);
    const std::string url = manager_->eventUrl(7, Value(), Value{{"note", "x y"}, {"ll", "info"}});
    EXPECT_EQ(url.rfind(server_.endpoint() + "/logstores/svideo/track?APIVersion=0.6.0&t=", 0), 0u) << url;
    EXPECT_NE(url.find("&ll=info&"), std::string::npos);  // a common entry replaces the envelope's in place
    EXPECT_NE(url.find("&co=cellnetwork&note=x y&args=&e=7"), std::string::npos) << url;
    reachability_->setFlags(0);
    EXPECT_NE(manager_->eventUrl(7, Value(), Value()).find("&co=cellnetwork&"), std::string::npos);
}

TEST_F(EventManagerTest, RequestIdStaysUntilRefreshed) {
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

TEST_F(EventManagerTest, DisabledManagerAndItsNewInstancesSendNothing) {
    manager_->setEnabled(false);
    auto upload = manager_->newInstance("upload");
    EXPECT_FALSE(upload->enabled());
    EXPECT_EQ(upload->logstore(), "upload");
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
}

TEST_F(EventManagerTest, NoEndpointMeansNoRequest) {
    AVCVEventManager::setLogServiceEndpoint("");
    manager_->sendEvent(1, Value());
    EXPECT_EQ(transport_->pending() + transport_->completed(), 0u);
    AVCVEventManager::setLogServiceEndpoint("log.example.test/");
    EXPECT_EQ(manager_->eventHostUrl(), "https://log.example.test/logstores/svideo/track?APIVersion=0.6.0");
}

TEST(AVCVEventManager, SharedManagerStartsEnabledOnSvideo) {
    auto shared = AVCVEventManager::sharedManager();
    EXPECT_EQ(shared, AVCVEventManager::sharedManager());
    EXPECT_TRUE(shared->enabled());
    EXPECT_EQ(shared->logstore(), "svideo");
    EXPECT_TRUE(std::regex_match(shared->requestID(), std::regex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}")));
    EXPECT_EQ(AVCVEventManager::urlEncodingWithDict(Value{{"b", 1.5}, {"a", true}, {"c", nullptr}, {"d", 2.0}}),
              "b=1.5&a=1&c=&d=2");
}
