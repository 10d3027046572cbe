// The programs as a user first meets them: --version and --help, usage errors as JSON events, the two
// ways to run the local cloud (same options, same facts under the same names), and the completion
// script and man page made from the option definitions.
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <cstdlib>
#include <set>

#include "cli/cli_fixture.h"

namespace quorvane {
namespace {

// The "name value" facts a cloud program prints before "ready".
std::map<std::string, std::string> cloudFacts(std::vector<std::string> args) {
    CliProcess process(std::move(args), {});
    std::map<std::string, std::string> facts;
    while (auto line = process.readLine(kGenerous)) {
        if (*line == "ready") break;
        auto space = line->find(' ');
        if (space != std::string::npos && line->rfind("try:", 0) != 0) facts[line->substr(0, space)] = line->substr(space + 1);
    }
    process.signal(SIGINT);
    EXPECT_EQ(process.wait(kGenerous), 0);
    return facts;
}

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

TEST(CloudPrograms, BothTakeTheSameOptionsAndPrintTheSameFacts) {
    CliProcess help({QUORVANE_CLOUD_PATH, "--help"}, {});
    EXPECT_EQ(help.wait(kGenerous), 0);
    CliProcess bad({QUORVANE_CLOUD_PATH, "--no-such-option"}, {});
    EXPECT_EQ(bad.wait(kGenerous), 2);

    auto storage = fs::temp_directory_path() / ("quorvane-cloud-facts-" + std::to_string(::getpid()));
    const std::vector<std::string> options{"--port", "0", "--bucket", "facts-bucket", "--region", "cn-beijing",
                                           "--storage", storage.string()};
    std::vector<std::string> program{QUORVANE_CLOUD_PATH}, subcommand{QUORVANE_CLI_PATH, "cloud"};
    program.insert(program.end(), options.begin(), options.end());
    subcommand.insert(subcommand.end(), options.begin(), options.end());
    auto fromProgram = cloudFacts(program);
    auto fromSubcommand = cloudFacts(subcommand);
    fs::remove_all(storage);
    std::set<std::string> programKeys, subcommandKeys;
    for (const auto& [key, value] : fromProgram) programKeys.insert(key);
    for (const auto& [key, value] : fromSubcommand) subcommandKeys.insert(key);
    EXPECT_EQ(programKeys, subcommandKeys);
    for (const char* key : {"endpoint", "port", "bucket", "region", "access-key-id", "access-key-secret",
                            "sts-security-token"})
        EXPECT_TRUE(programKeys.count(key)) << key;
    EXPECT_EQ(fromProgram["bucket"], "facts-bucket");
    EXPECT_EQ(fromSubcommand["region"], "cn-beijing");
}

TEST_F(CliUpload, CompletionAndManPageNameEveryUploadOption) {
    auto completion = run({"--generate", "bash-completion"});
    ASSERT_EQ(completion->wait(kGenerous), 0);
    std::string script;
    for (const auto& line : completion->lines()) script += line + "\n";
    for (const char* option : {"--bwlimit", "--jobs", "--recursive", "--profile", "--dry-run", "--ca-file"})
        EXPECT_NE(script.find(option), std::string::npos) << option;
    auto path = root_ / "completion.bash";
    std::ofstream(path) << script;
    EXPECT_EQ(std::system(("bash -n " + path.string()).c_str()), 0);  // it parses

    auto man = run({"--generate", "man"});
    ASSERT_EQ(man->wait(kGenerous), 0);
    std::string page;
    for (const auto& line : man->lines()) page += line + "\n";
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
}

// The demo's options are defined by its own program; the man page and the completion still show them.
TEST_F(CliUpload, DemoAndCloudProgramsAreDocumentedAndCompleted) {
    auto man = run({"--generate", "man"});
    ASSERT_EQ(man->wait(kGenerous), 0);
    std::string page;
    for (const auto& line : man->lines()) page += line + "\n";
    for (const char* section : {".SH quorvane demo scan", ".SH quorvane demo record", ".SH quorvane demo location"})
        EXPECT_NE(page.find(section), std::string::npos) << section;
    EXPECT_NE(page.find("\\-\\-input"), std::string::npos);

    auto completion = run({"--generate", "bash-completion"});
    ASSERT_EQ(completion->wait(kGenerous), 0);
    std::string script;
    for (const auto& line : completion->lines()) script += line + "\n";
    auto path = root_ / "completion.bash";
    std::ofstream(path) << script;
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
    auto cloudMan = run({"--generate", "cloud-man"});
    ASSERT_EQ(cloudMan->wait(kGenerous), 0);
    std::string cloudPage;
    for (const auto& line : cloudMan->lines()) cloudPage += line + "\n";
    EXPECT_EQ(cloudPage.rfind(".TH quorvane-cloud 1", 0), 0u);
    EXPECT_NE(cloudPage.find("\\-\\-v4\\-only"), std::string::npos);
}

}  // namespace
}  // namespace quorvane
