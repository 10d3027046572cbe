// `quorvane demo location`: a configured position comes back converted to GCJ-02 in the façade's
// dictionary; no position means no permission and a failing exit.
#include <gtest/gtest.h>

#include "cli_process.h"
#include "foundation/value.h"

namespace quorvane {
namespace {

using namespace std::chrono_literals;
using testing::CliProcess;

Value onlyLine(CliProcess& process) {
    EXPECT_EQ(process.lines().size(), 1u) << process.errors();
    return process.lines().empty() ? Value() : Value::parse(process.lines()[0]);
}

TEST(CliDemoLocation, ConfiguredPositionComesBackAsTheElevenKeyDictionaryInGcj02) {
    // --at wins over the environment.
    CliProcess process({QUORVANE_CLI_PATH, "demo", "location", "--at", "39.9087,116.3975"}, {{"QUORVANE_LOCATION", "31.23,121.47"}});
    ASSERT_EQ(process.wait(60s), 0) << process.errors();
    Value line = onlyLine(process);
    const Value& result = line["success"];
    std::vector<std::string> keys;
    for (const auto& item : result.items()) keys.push_back(item.key());
    EXPECT_EQ(keys, (std::vector<std::string>{"methodName", "latitude", "longitude", "countryCode", "country",
                                              "province", "city", "district", "street", "place", "address"}));
    EXPECT_EQ(result["latitude"], "39.909704");
    EXPECT_EQ(result["longitude"], "116.403744");
}

TEST(CliDemoLocation, NoPositionFailsWithoutPermissionAndBadPositionIsAUsageError) {
    CliProcess none({QUORVANE_CLI_PATH, "demo", "location"}, {{"QUORVANE_LOCATION", ""}, {"QUORVANE_LOCATION_FILE", ""}});
    EXPECT_EQ(none.wait(60s), 1);
    EXPECT_EQ(onlyLine(none)["fail"], "no location permission");

    CliProcess bad({QUORVANE_CLI_PATH, "demo", "location", "--at", "91,10"}, {});
    EXPECT_EQ(bad.wait(60s), 2);
    EXPECT_TRUE(bad.lines().empty());
}

// An input without its FFmpeg format is a usage error, never a device opened or a permission asked for.
TEST(CliDemoCapture, AnInputWithoutItsFormatIsAUsageErrorNotAPermissionAlert) {
    for (const char* command : {"scan", "photo", "record"}) {
        CliProcess bare({QUORVANE_CLI_PATH, "demo", command, "--input", "code.png"}, {});
        EXPECT_EQ(bare.wait(60s), 2) << command;
        EXPECT_TRUE(bare.lines().empty()) << command;
        EXPECT_NE(bare.errors().find("not an input this program understands"), std::string::npos) << bare.errors();
        EXPECT_NE(bare.errors().find("image2:code.png"), std::string::npos) << bare.errors();
    }
}

}  // namespace
}  // namespace quorvane
