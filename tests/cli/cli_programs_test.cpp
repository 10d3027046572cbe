// The programs as a user first meets them: --version and --help, usage errors as JSON events, the
// completion script and man page made from the option definitions, and `quorvane demo`: a configured
// position comes back converted to GCJ-02 in the façade's dictionary, no position means no permission.
#include <gtest/gtest.h>

#include <fstream>
#include <cstdlib>

#include "cli/cli_fixture.h"

namespace quorvane {
namespace {

TEST_F(CliUpload, VersionAndHelpExitZeroAndUsageErrorsExitTwoBeforeUploading) {
    auto version = ran(0, {"--version"});
    ASSERT_FALSE(version->lines().empty());
    EXPECT_EQ(version->lines()[0].rfind("quorvane ", 0), 0u) << version->lines()[0];
    ran(0, {"upload", "--help"});
    ran(2, {});

    // With --json a usage error is the one line, an event.
    auto unknown = ran(2, {"upload", "--json", "--no-such-option", "x.bin"});
    ASSERT_EQ(unknown->lines().size(), 1u) << unknown->errors();
    auto event = foundation::parseJson(unknown->lines()[0]);
    ASSERT_TRUE(event);
    EXPECT_EQ((*event)["event"], "error");
    EXPECT_EQ((*event)["kind"], "usage");
    EXPECT_TRUE((*event)["time"].is_string());

    auto file = makeFile("ok.bin", 1000, 3);
    fs::create_directories(root_ / "folder");
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"upload"}, "no file given"},
        {{"upload", "--no-such-option", file}, ""},
        {{"upload", "--part-size", "5", file}, ""},
        {{"upload", "--vod", "--oss", file}, ""},
        {{"upload", (root_ / "missing.bin").string()}, "no such file"},
        {{"upload", (root_ / "folder").string()}, "is a directory"},
        {{"upload", "--vod", file}, "--vod takes video"},
        {{"upload", "--endpoint", "ftp://x", "--bucket", "b", "--key-id", "k", "--secret", "s", file}, "bad endpoint"},
        {{"upload", "--key-id", "k", file}, "--key-id and --secret"},
    };
    for (const auto& [args, message] : cases) {
        SCOPED_TRACE("'" + args.back() + "'");
        EXPECT_NE(ran(2, args)->errors().find(message), std::string::npos);
    }
    // Nothing reached a cloud: no storage was even made.
    EXPECT_FALSE(fs::exists(root_ / "cache" / "quorvane" / "cloud"));
}

// The man page and the completion script are made from the option definitions, the demo's (defined by
// its own program) and the cloud program's included.
TEST_F(CliUpload, CompletionAndManPageNameEveryOptionAndCommand) {
    auto text = [&](const char* what) {
        auto process = ran(0, {"--generate", what});
        std::string all;
        for (const auto& line : process->lines()) all += line + "\n";
        return all;
    };
    const auto script = text("bash-completion");
    for (const char* option : {"--bwlimit", "--jobs", "--recursive", "--profile", "--dry-run", "--ca-file"})
        EXPECT_NE(script.find(option), std::string::npos) << option;
    auto path = root_ / "completion.bash";
    std::ofstream(path) << script;
    EXPECT_EQ(std::system(("bash -n " + path.string()).c_str()), 0);  // it parses

    const auto page = text("man");
    EXPECT_EQ(page.rfind(".TH quorvane 1", 0), 0u);
    // A flag takes no value; an option does.
    EXPECT_EQ(page.find("\\-\\-json\\fR \\fIVALUE"), std::string::npos);
    for (const char* text : {"\\-\\-bwlimit", "OSS_ACCESS_KEY_ID", "\\fB\\-r\\fR, \\fB\\-\\-recursive\\fR\n",
                             "\\fB\\-\\-bwlimit\\fR \\fIVALUE\\fR", ".SH quorvane demo scan", ".SH quorvane demo record",
                             ".SH quorvane demo location", "\\-\\-input"})
        EXPECT_NE(page.find(text), std::string::npos) << text;
    for (const char* command : {"ls", "get", "rm", "uploads", "verify", "config", "presign"}) {
        EXPECT_NE(page.find(std::string(".SH quorvane ") + command + "\n"), std::string::npos) << command;
        EXPECT_NE(script.find(std::string("    ") + command + ")\n"), std::string::npos) << command;
    }

    // What bash offers after `quorvane demo ` and `quorvane demo scan --i`.
    auto complete = [&](const std::string& words, int index) {
        auto command = "bash -c 'source " + path.string() + "; COMP_WORDS=(" + words + "); COMP_CWORD=" +
                       std::to_string(index) + "; _quorvane; echo \"${COMPREPLY[*]}\"' > " + (root_ / "out").string();
        EXPECT_EQ(std::system(command.c_str()), 0);
        std::ifstream in(root_ / "out");
        std::string offered;
        std::getline(in, offered);
        return offered;
    };
    auto afterDemo = complete("quorvane demo \"\"", 2);
    for (const char* word : {"record", "scan", "photo", "location"})
        EXPECT_NE(afterDemo.find(word), std::string::npos) << afterDemo;
    EXPECT_NE(complete("quorvane demo scan --i", 3).find("--input"), std::string::npos);

    CliProcess cloudVersion({QUORVANE_CLOUD_PATH, "--version"}, {});
    ASSERT_EQ(cloudVersion.wait(kGenerous), 0);
    ASSERT_FALSE(cloudVersion.lines().empty());
    EXPECT_EQ(cloudVersion.lines()[0].rfind("quorvane-cloud ", 0), 0u);
    const auto cloudPage = text("cloud-man");
    EXPECT_EQ(cloudPage.rfind(".TH quorvane-cloud 1", 0), 0u);
    EXPECT_NE(cloudPage.find("\\-\\-v4\\-only"), std::string::npos);
}

Value onlyLine(CliProcess& process) {
    EXPECT_EQ(process.lines().size(), 1u) << process.errors();
    return process.lines().empty() ? Value() : Value::parse(process.lines()[0]);
}

TEST(CliDemoLocation, ConfiguredPositionComesBackInGcj02AndNoneFailsWithoutPermission) {
    // --at wins over the environment.
    CliProcess process({QUORVANE_CLI_PATH, "demo", "location", "--at", "39.9087,116.3975"}, {{"QUORVANE_LOCATION", "31.23,121.47"}});
    ASSERT_EQ(process.wait(60s), 0) << process.errors();
    const Value result = onlyLine(process)["success"];
    std::vector<std::string> keys;
    for (const auto& item : result.items()) keys.push_back(item.key());
    EXPECT_EQ(keys, (std::vector<std::string>{"methodName", "latitude", "longitude", "countryCode", "country",
                                              "province", "city", "district", "street", "place", "address"}));
    EXPECT_EQ(result["latitude"], "39.909704");
    EXPECT_EQ(result["longitude"], "116.403744");

    // No position fails without permission; a bad position is a usage error.
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
