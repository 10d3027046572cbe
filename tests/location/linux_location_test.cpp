// The configured Linux position source.
#include <gtest/gtest.h>

#include "platform/linux/linux_location.h"
#include "platform/linux/linux_permissions.h"

#include <unistd.h>

#include <fstream>

namespace quorvane {
namespace {

using platform::linux_impl::parseConfiguredPosition;

TEST(LinuxLocation, ConfiguredPositionParsing) {
    auto p = parseConfiguredPosition(" 39.9 , 116.4\n");
    ASSERT_TRUE(p);
    EXPECT_DOUBLE_EQ(p->latitude, 39.9);
    EXPECT_DOUBLE_EQ(p->longitude, 116.4);
    for (const char* bad : {"39.9", "91,10", "x,10", "10,20 north"}) EXPECT_FALSE(parseConfiguredPosition(bad)) << bad;
}

TEST(LinuxLocation, UnconfiguredMeansDeniedAndOff) {
    platform::linux_impl::LinuxLocationServices none(std::nullopt);
    EXPECT_FALSE(none.locationServicesEnabled());
    EXPECT_EQ(none.authorizationStatus(), platform::LocationStatusDenied);
    platform::linux_impl::LinuxLocationServices some(platform::Coordinate{31.2, 121.5});
    EXPECT_TRUE(some.locationServicesEnabled());
    EXPECT_EQ(some.authorizationStatus(), platform::LocationStatusAuthorizedAlways);
}

TEST(LinuxPermissions, DeviceNodeStatusFollowsPresenceAndAccess) {
    auto dir = std::filesystem::temp_directory_path() / ("quorvane-dev-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    using platform::linux_impl::deviceNodeStatus;
    EXPECT_EQ(deviceNodeStatus(dir, "video"), platform::StatusRestricted);
    std::ofstream(dir / "video0") << "";
    EXPECT_EQ(deviceNodeStatus(dir, "video"), platform::StatusAuthorized);
    EXPECT_EQ(deviceNodeStatus(dir, "pcm", "c"), platform::StatusRestricted);
    std::filesystem::permissions(dir / "video0", std::filesystem::perms::none);
    if (::geteuid() != 0) {  // root may open anything
        EXPECT_EQ(deviceNodeStatus(dir, "video"), platform::StatusDenied);
    }
    std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace quorvane
