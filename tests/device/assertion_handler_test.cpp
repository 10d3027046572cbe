// The reachability checks report through the one assertion handler: the default one ends the
// process with the failure's text, a replaced one hears it and the caller carries on.
#include <gtest/gtest.h>

#include <vector>

#include "device/NetReachability.h"
#include "platform/assertion.h"

namespace quorvane {
namespace {

class ReachabilityAssertions : public ::testing::Test {
protected:
    void TearDown() override { platform::setAssertionHandler(nullptr); }
};

TEST_F(ReachabilityAssertions, ReplacedHandlerHearsEachFailureAndTheCallerCarriesOnTheDefaultOneEndsTheProcess) {
    std::vector<platform::AssertionFailure> heard;
    platform::setAssertionHandler([&](const platform::AssertionFailure& failure) { heard.push_back(failure); });
    int notAnInstance = 0;
    ReachabilityCallback(nullptr, 0, nullptr);
    ReachabilityCallback(nullptr, 0, &notAnInstance);
    ASSERT_EQ(heard.size(), 2u);
    EXPECT_EQ(heard[0].source, "NetReachability");
    EXPECT_EQ(heard[0].line, 89);
    EXPECT_EQ(heard[0].text, "info was NULL in ReachabilityCallback");
    EXPECT_EQ(heard[0].function,
              "void ReachabilityCallback(SCNetworkReachabilityRef, SCNetworkReachabilityFlags, void *)");
    EXPECT_EQ(heard[1].line, 90);
    EXPECT_EQ(heard[1].text, "info was wrong class in ReachabilityCallback");

    platform::setAssertionHandler(nullptr);  // the default handler ends the process with the text
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(ReachabilityCallback(nullptr, 0, nullptr),
                 "Assertion failure in void ReachabilityCallback.*NetReachability:89");
}

}  // namespace
}  // namespace quorvane
