#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "VODUpload/src/AVCVEventManager.h"
#include "VODUpload/src/AVCVEventTransport.h"
#include "device/reachability_test_support.h"
#include "telemetry/log_service_server.h"

using namespace quorvane;

namespace {
constexpr auto kWait = std::chrono::seconds(60);
constexpr int kEvents = 1000;
}  // namespace

// A stalled log service must cost the caller nothing: every send returns while the service still
// holds the first requests. Only as many requests as there are slots are ever started; every other
// event is dropped and counted, never kept for later, so releasing the service brings exactly those.
TEST(EventBackpressure, StalledLogServiceNeverHoldsTheCallerAndNothingIsQueued) {
    test::ScriptedReachability reachability;
    test::LogServiceServer server;
    server.hold();
    AVCVEventManager::setLogServiceEndpoint(server.endpoint());
    AVCVEventTransportOptions options;
    options.maxInFlight = 4;
    auto transport = test::makeTransport(options);
    auto manager = std::make_shared<AVCVEventManager>();
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
    AVCVEventManager::setLogServiceEndpoint("");
}

// A log service that is not there at all: requests fail fast, nothing is retried, nothing leaks.
TEST(EventBackpressure, DeadLogServiceLosesEventsQuietly) {
    test::ScriptedReachability reachability;
    std::string endpoint;
    {
        test::LogServiceServer gone;
        endpoint = gone.endpoint();
    }
    AVCVEventManager::setLogServiceEndpoint(endpoint);
    auto transport = test::makeTransport();
    auto manager = std::make_shared<AVCVEventManager>();
    manager->setTransport(transport);
    for (int i = 0; i < 20; ++i) manager->sendEvent(i, Value());
    ASSERT_TRUE(transport->waitUntilIdle(kWait));
    EXPECT_EQ(transport->completed() + transport->dropped(), 20u);
    AVCVEventManager::setLogServiceEndpoint("");
}
