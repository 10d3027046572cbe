// quorvane-cloud run as a program: `quorvane-cloud` and `quorvane cloud` take the same options and print
// the same facts under the same names; a port held by another socket is an error, never "ready"; a fault
// script given with --faults fires the stated number of times; the request log on standard error names
// every request (statuses and resets) and --quiet silences it.
#include <gtest/gtest.h>
#include <httplib.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <tuple>

#include "cli/cli_process.h"
#include "foundation/temp_files.h"
#include "support/port_holder.h"

namespace quorvane {
namespace {

namespace fs = std::filesystem;
using testing::CliProcess;
using namespace std::chrono_literals;

constexpr auto kGenerous = 180s;

// Facts printed before "ready"; empty when the program ended first.
std::map<std::string, std::string> readFacts(CliProcess& process) {
    std::map<std::string, std::string> facts;
    while (auto line = process.readLine(kGenerous)) {
        if (*line == "ready") return facts;
        auto space = line->find(' ');
        if (space != std::string::npos && line->rfind("try:", 0) != 0) facts[line->substr(0, space)] = line->substr(space + 1);
    }
    return {};
}

// The facts of a cloud program run with `args`, which is then stopped as a user would.
std::map<std::string, std::string> factsUntilStopped(std::vector<std::string> args) {
    CliProcess process(std::move(args), {});
    auto facts = readFacts(process);
    process.signal(SIGINT);
    EXPECT_EQ(process.wait(kGenerous), 0);
    return facts;
}

std::vector<std::string> linesWith(const std::string& text, const std::string& needle) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (line.find(needle) != std::string::npos) out.push_back(line);
    return out;
}

// `text` written to a file in `dir`; its path.
std::string write(const foundation::ScopedTempDir& dir, const std::string& name, const std::string& text) {
    std::ofstream(dir.path() + "/" + name) << text;
    return dir.path() + "/" + name;
}

TEST(CloudPrograms, BothTakeTheSameOptionsAndPrintTheSameFacts) {
    CliProcess help({QUORVANE_CLOUD_PATH, "--help"}, {});
    EXPECT_EQ(help.wait(kGenerous), 0);
    CliProcess bad({QUORVANE_CLOUD_PATH, "--no-such-option"}, {});
    EXPECT_EQ(bad.wait(kGenerous), 2);

    foundation::ScopedTempDir storage;
    const std::vector<std::string> options{"--port", "0", "--bucket", "facts-bucket", "--region", "cn-beijing",
                                           "--storage", storage.path()};
    std::vector<std::string> program{QUORVANE_CLOUD_PATH}, subcommand{QUORVANE_CLI_PATH, "cloud"};
    program.insert(program.end(), options.begin(), options.end());
    subcommand.insert(subcommand.end(), options.begin(), options.end());
    auto fromProgram = factsUntilStopped(program);
    auto fromSubcommand = factsUntilStopped(subcommand);
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

// A port held by another socket (it offers to share the port: the cloud must not take it) and a fault
// script that does not parse: errors, never "ready".
TEST(CloudPrograms, APortInUseOrAMalformedFaultScriptIsAnErrorNeverReady) {
    foundation::ScopedTempDir dir;
    test::PortHolder holder;
    ASSERT_NE(holder.port(), 0);
    const auto port = std::to_string(holder.port());
    auto script = write(dir, "bad.json", R"([{"operation": "UploadPart", "fault": "explode"}])");
    const std::tuple<std::vector<std::string>, int, std::string> cases[] = {
        {{QUORVANE_CLOUD_PATH, "--port", port}, 1, "127.0.0.1:" + port + " is in use"},
        {{QUORVANE_CLOUD_PATH, "--faults", script}, 2, "entry 1: unknown fault \"explode\""},
    };
    for (const auto& [args, exit, message] : cases) {
        CliProcess cloud(args, {});
        EXPECT_EQ(cloud.wait(kGenerous), exit) << message;
        for (const auto& line : cloud.lines()) EXPECT_NE(line, "ready");
        EXPECT_NE(cloud.errors().find(message), std::string::npos) << cloud.errors();
    }
}

TEST(CloudPrograms, FaultScriptFiresAsWrittenAndTheLogShowsEachRequest) {
    foundation::ScopedTempDir dir;
    auto script = write(dir, "faults.json", R"([
        {"operation": "PutWebtracking", "status": 503, "count": 2},
        {"operation": "PutWebtracking", "fault": "reset"}])");
    CliProcess cloud({QUORVANE_CLOUD_PATH, "--port", "0", "--faults", script}, {});
    auto facts = readFacts(cloud);
    ASSERT_FALSE(facts.empty()) << cloud.errors();
    EXPECT_EQ(facts["console"], facts["endpoint"] + "/_console/");
    httplib::Client client("127.0.0.1", std::stoi(facts["port"]));
    client.set_read_timeout(20);
    const std::string target = "/logstores/s/track?APIVersion=0.6.0&SecurityToken=CAISsecret";
    std::vector<int> statuses;
    for (int i = 0; i < 5; ++i) {
        auto res = client.Get(target);
        statuses.push_back(res ? res->status : 0);
    }
    EXPECT_EQ(statuses, (std::vector<int>{503, 503, 0, 200, 200}));
    cloud.signal(SIGINT);
    EXPECT_EQ(cloud.wait(kGenerous), 0);
    auto logged = linesWith(cloud.errors(), " PutWebtracking ");
    ASSERT_EQ(logged.size(), 5u) << cloud.errors();
    for (int i : {0, 1}) EXPECT_NE(logged[i].find(" 503 "), std::string::npos) << logged[i];
    EXPECT_NE(logged[2].find(" reset "), std::string::npos) << logged[2];
    EXPECT_NE(logged[3].find(" 200 "), std::string::npos) << logged[3];
    EXPECT_EQ(cloud.errors().find("CAISsecret"), std::string::npos);  // the token's value is redacted

    CliProcess quiet({QUORVANE_CLOUD_PATH, "--port", "0", "--quiet"}, {});
    facts = readFacts(quiet);
    ASSERT_FALSE(facts.empty()) << quiet.errors();
    httplib::Client other("127.0.0.1", std::stoi(facts["port"]));
    other.set_read_timeout(20);
    ASSERT_TRUE(other.Get(target));
    quiet.signal(SIGINT);
    EXPECT_EQ(quiet.wait(kGenerous), 0);
    EXPECT_TRUE(linesWith(quiet.errors(), "PutWebtracking").empty()) << quiet.errors();
}

}  // namespace
}  // namespace quorvane
