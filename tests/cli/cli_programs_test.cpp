// The programs as a user first meets them: --version and --help, usage errors as JSON events, and the
// completion script and man page made from the option definitions.
#include <gtest/gtest.h>

#include <fstream>
#include <cstdlib>

#include "cli/cli_fixture.h"

namespace quorvane {
namespace {

TEST_F(CliUpload, VersionAndHelpExitZeroAndUsageErrorsAreJsonEventsWithJson) {
    auto version = run({"--version"});
    ASSERT_EQ(version->wait(kGenerous), 0);
    ASSERT_FALSE(version->lines().empty());
    EXPECT_EQ(version->lines()[0].rfind("quorvane ", 0), 0u) << version->lines()[0];
    auto help = run({"upload", "--help"});
    EXPECT_EQ(help->wait(kGenerous), 0);

    auto unknown = run({"upload", "--json", "--no-such-option", "x.bin"});
    EXPECT_EQ(unknown->wait(kGenerous), 2);
    ASSERT_EQ(unknown->lines().size(), 1u) << unknown->errors();
    auto event = foundation::parseJson(unknown->lines()[0]);
    ASSERT_TRUE(event);
    EXPECT_EQ((*event)["event"], "error");
    EXPECT_EQ((*event)["kind"], "usage");
    EXPECT_TRUE((*event)["time"].is_string());
    auto none = run({});
    EXPECT_EQ(none->wait(kGenerous), 2);
}

// The man page and the completion script are made from the option definitions, the demo's (defined by
// its own program) and the cloud program's included.
TEST_F(CliUpload, CompletionAndManPageNameEveryOptionAndCommand) {
    auto text = [&](const char* what) {
        auto process = run({"--generate", what});
        EXPECT_EQ(process->wait(kGenerous), 0) << what;
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
    EXPECT_NE(page.find("\\-\\-bwlimit"), std::string::npos);
    EXPECT_NE(page.find("OSS_ACCESS_KEY_ID"), std::string::npos);
    // A flag takes no value; an option does.
    EXPECT_NE(page.find("\\fB\\-r\\fR, \\fB\\-\\-recursive\\fR\n"), std::string::npos);
    EXPECT_EQ(page.find("\\-\\-json\\fR \\fIVALUE"), std::string::npos);
    EXPECT_NE(page.find("\\fB\\-\\-bwlimit\\fR \\fIVALUE\\fR"), std::string::npos);
    for (const char* command : {"ls", "get", "rm", "uploads", "verify", "config", "presign"}) {
        EXPECT_NE(page.find(std::string(".SH quorvane ") + command + "\n"), std::string::npos) << command;
        EXPECT_NE(script.find(std::string("    ") + command + ")\n"), std::string::npos) << command;
    }
    for (const char* section : {".SH quorvane demo scan", ".SH quorvane demo record", ".SH quorvane demo location"})
        EXPECT_NE(page.find(section), std::string::npos) << section;
    EXPECT_NE(page.find("\\-\\-input"), std::string::npos);

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

    CliProcess version({QUORVANE_CLOUD_PATH, "--version"}, {});
    ASSERT_EQ(version.wait(kGenerous), 0);
    ASSERT_FALSE(version.lines().empty());
    EXPECT_EQ(version.lines()[0].rfind("quorvane-cloud ", 0), 0u);
    const auto cloudPage = text("cloud-man");
    EXPECT_EQ(cloudPage.rfind(".TH quorvane-cloud 1", 0), 0u);
    EXPECT_NE(cloudPage.find("\\-\\-v4\\-only"), std::string::npos);
}

}  // namespace
}  // namespace quorvane
