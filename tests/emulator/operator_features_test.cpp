// What the local cloud offers whoever runs it: a request log that keeps secrets out, fault scripts
// written as JSON, a console fed from its state, and a storage directory that keeps its CA and its STS
// credentials good across a restart, its HTTPS trusted through that CA alone.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "emulator/fault_file.h"
#include "emulator/request_log.h"
#include "emulator_test_support.h"
#include "foundation/log.h"
#include "foundation/temp_files.h"

namespace quorvane::emulator {
namespace {

namespace fs = std::filesystem;
using namespace testing;

TEST(RequestLog, RedactsEveryAuthenticatingQueryValueIsPrintedOnlyWhenAskedAndNeverCarriesTheToken) {
    auto target = redactedTarget(
        "/b/k?uploadId=U1&partNumber=3&x-oss-signature=abc&x-oss-credential=LTAI%2F20250101&Signature=s%3D"
        "&SecurityToken=CAIS123&x-oss-security-token=t&OSSAccessKeyId=id&Expires=9&acl");
    EXPECT_EQ(target,
              "/b/k?uploadId=U1&partNumber=3&x-oss-signature=REDACTED&x-oss-credential=REDACTED&Signature=REDACTED"
              "&SecurityToken=REDACTED&x-oss-security-token=REDACTED&OSSAccessKeyId=id&Expires=9&acl");
    // Names encoded to dodge the rule are caught too; spaces and control bytes cannot split the line.
    EXPECT_EQ(redactedTarget("/a b?%53ignature=x&n=a\nb"), "/a%20b?%53ignature=REDACTED&n=a%0Ab");

    LoggedRequest r{"2026-01-02T03:04:05.678Z", "PUT", "/b/k?partNumber=1", "UploadPart", 200, 1048576, 0, 12};
    EXPECT_EQ(logLineOf(r), "2026-01-02T03:04:05.678Z PUT /b/k?partNumber=1 UploadPart 200 in=1048576 out=0 12ms");
    r.status = 0;
    r.operation = "";
    EXPECT_EQ(logLineOf(r), "2026-01-02T03:04:05.678Z PUT /b/k?partNumber=1 - reset in=1048576 out=0 12ms");

    // Printed only when asked, and never with the token.
    for (bool print : {false, true}) {
        foundation::LogCapture log;
        EmulatorOptions options;
        options.requestLog = print;
        CloudEmulator cloud(options);
        ASSERT_TRUE(cloud.start());
        auto sts = cloud.issueSts();
        httplib::Client client("127.0.0.1", cloud.port());
        client.set_read_timeout(20);
        const std::string target = "/" + options.bucket + "/logged.txt";
        Key key{sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken};
        auto res = client.Put(target, signedHeaders(key, "PUT", target, "text/plain"), "hello", "text/plain");
        ASSERT_EQ(outcome(res), "200");
        ASSERT_TRUE(client.Get("/_console/state.json"));  // the console's own requests are not logged
        cloud.stop();
        std::vector<std::string> lines;
        for (const auto& line : log.lines())
            if (line.find(" PUT ") != std::string::npos || line.find("_console") != std::string::npos)
                lines.push_back(line);
        if (!print) {
            EXPECT_TRUE(lines.empty());
            continue;
        }
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_NE(lines[0].find(" PUT " + target + " PutObject 200 in=5 out=0 "), std::string::npos) << lines[0];
        for (const auto& line : log.lines()) {
            EXPECT_EQ(line.find(sts.SecurityToken.substr(4, 20)), std::string::npos) << line;
            EXPECT_EQ(line.find(sts.AccessKeySecret), std::string::npos) << line;
        }
    }
}

TEST(FaultScripts, EntriesBecomeCountedFaultsInOrderAndMistakesAreNamed) {
    std::string error;
    auto faults = parseFaultScript(R"([
        {"operation": "UploadPart", "fault": "reset", "count": 2, "after_bytes": 1024},
        {"operation": "PutObject", "status": 503, "count": 1},
        {"operation": "CompleteMultipartUpload", "delay_ms": 3000},
        {"operation": "*", "fault": "error", "code": "SlowDown", "message": "m"},
        {"operation": "UploadPart", "fault": "corrupt-crc"}])",
                                   error);
    ASSERT_TRUE(faults) << error;
    std::vector<std::string> seen;  // operation, kind, then what that kind uses
    for (const auto& f : *faults) {
        const char* kinds[] = {"error", "reset", "delay", "corrupt-crc"};
        auto kind = std::string(f.op) + " " + kinds[static_cast<int>(f.kind)];
        if (f.kind == Fault::Kind::Error) kind += " " + std::to_string(f.status) + " " + f.code + " " + f.message;
        if (f.kind == Fault::Kind::Reset) kind += " " + std::to_string(f.afterBytes);
        seen.push_back(f.kind == Fault::Kind::Delay ? kind + " " + std::to_string(f.delayMs) : kind);
    }
    EXPECT_EQ(seen, (std::vector<std::string>{"UploadPart reset 1024", "UploadPart reset 1024",
                                              "PutObject error 503 ServiceUnavailable ", "CompleteMultipartUpload delay 3000",
                                              "* error 500 SlowDown m", "UploadPart corrupt-crc"}));

    // Mistakes are named with their entry.
    const std::pair<const char*, const char*> cases[] = {
        {R"({"operation": "PutObject"})", "must be a JSON array"},
        {R"([{"operation": "PutObject", "status": 503,)", "not JSON"},
        {R"([{"operation": "PutObject", "fault": "boom"}])", "entry 1: unknown fault \"boom\""},
        {R"([{"operation": "A", "status": 500}, {"operation": "B", "stauts": 500}])", "entry 2: unknown name \"stauts\""},
        {R"([{"fault": "reset"}])", "\"operation\" is missing"},
        {R"([{"operation": "A", "status": 200}])", "\"status\" must be a whole number from 400 to 599"},
        {R"([{"operation": "A", "fault": "reset", "count": 0}])", "\"count\" must be"},
        {R"([{"operation": "A"}])", "no \"fault\""},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_FALSE(parseFaultScript(text, error)) << text;
        EXPECT_NE(error.find(expected), std::string::npos) << text << " -> " << error;
    }
    EXPECT_FALSE(loadFaultScript("/nonexistent/faults.json", error));
    EXPECT_NE(error.find("/nonexistent/faults.json: cannot be read"), std::string::npos) << error;
}

TEST(Console, StateShowsObjectsAndRequestsAndFaultsCanBeScriptedWhileRunning) {
    CloudEmulator cloud;
    ASSERT_TRUE(cloud.start());
    ASSERT_TRUE(cloud.putObject(cloud.options().bucket, "seen <b>.bin", "0123456789"));
    EXPECT_EQ(cloud.consoleUrl(), cloud.endpoint() + "/_console/");
    httplib::Client client("127.0.0.1", cloud.port());
    client.set_read_timeout(20);
    ASSERT_TRUE(client.Get(kTrack));
    auto page = client.Get("/_console/");
    ASSERT_EQ(outcome(page), "200");
    EXPECT_NE(page->body.find("state.json"), std::string::npos);
    auto res = client.Get("/_console/state.json");
    ASSERT_TRUE(res);
    auto state = Value::parse(res->body);
    ASSERT_EQ(state["buckets"].size(), 1u);
    ASSERT_EQ(state["buckets"][0]["objects"].size(), 1u);
    const auto& object = state["buckets"][0]["objects"][0];
    EXPECT_EQ(object["key"], "seen <b>.bin");
    EXPECT_EQ(object["size"], 10);
    EXPECT_EQ(object["crc64"], std::to_string(cloud.object(cloud.options().bucket, "seen <b>.bin")->crc64));
    ASSERT_EQ(state["requests"].size(), 1u);  // the console's own requests are not among them
    EXPECT_EQ(state["requests"][0]["operation"], "PutWebtracking");
    EXPECT_EQ(cloud.requests().size(), 1u);

    const std::string script = R"([{"operation": "PutWebtracking", "status": 503, "count": 2}])";
    // Only as JSON: a form another site's page could send is refused and adds nothing.
    auto plain = client.Post("/_console/faults", script, "text/plain");
    ASSERT_EQ(outcome(plain), "415");
    auto bad = client.Post("/_console/faults", R"([{"operation": "X", "fault": "boom"}])", "application/json");
    ASSERT_EQ(outcome(bad), "400");
    EXPECT_NE(bad->body.find("unknown fault \"boom\""), std::string::npos) << bad->body;
    EXPECT_EQ(cloud.pendingFaults(), 0u);
    auto added = client.Post("/_console/faults", script, "application/json");
    ASSERT_EQ(outcome(added), "200");
    EXPECT_EQ(Value::parse(added->body)["pending"], 2);
    EXPECT_EQ(client.Get(kTrack)->status, 503);
    auto seen = Value::parse(client.Get("/_console/faults")->body);
    EXPECT_EQ(seen["pending"], 1);
    ASSERT_EQ(seen["fired"].size(), 1u);
    EXPECT_EQ(seen["fired"][0]["operation"], "PutWebtracking");
    EXPECT_EQ(seen["fired"][0]["fault"], "error");
    auto cleared = client.Delete("/_console/faults");
    ASSERT_TRUE(cleared);
    EXPECT_EQ(Value::parse(cleared->body)["pending"], 0);
    EXPECT_EQ(client.Get(kTrack)->status, 200);
}

// An IPv4 address of this machine that is not loopback, or "" when it has none.
std::string outwardAddress() {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return "";
    std::string found;
    for (auto* a = list; a && found.empty(); a = a->ifa_next) {
        if (!a->ifa_addr || a->ifa_addr->sa_family != AF_INET) continue;
        char text[INET_ADDRSTRLEN];
        inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(a->ifa_addr)->sin_addr, text, sizeof text);
        if (std::string(text).rfind("127.", 0) != 0) found = text;
    }
    freeifaddrs(list);
    return found;
}

TEST(Console, IsRefusedToOtherMachinesUnlessAsked) {
    const auto address = outwardAddress();
    if (address.empty()) GTEST_SKIP() << "no address but loopback here";
    for (bool anyone : {false, true}) {
        EmulatorOptions options;
        options.host = "0.0.0.0";
        options.consoleForAnyone = anyone;
        CloudEmulator cloud(options);
        ASSERT_TRUE(cloud.start());
        httplib::Client client(address, cloud.port());  // the peer is then that address, not loopback
        client.set_read_timeout(20);
        EXPECT_EQ(outcome(client.Get("/_console/state.json")), anyone ? "200" : "403");
        EXPECT_EQ(outcome(client.Get(kTrack)), "200");  // the services answer anyone
    }
}

std::string fileText(const fs::path& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

unsigned modeOf(const fs::path& path) {
    struct stat st {};
    ::stat(path.c_str(), &st);
    return st.st_mode & 0777;
}

TEST(KeptStorage, CaFileAndStsCredentialsOutliveARestart) {
    foundation::ScopedTempDir scratch;
    const fs::path dir = scratch.path();
    EmulatorOptions options;
    options.storageDir = scratch.path();
    options.https = true;
    StsCredentials sts;
    std::string caPem;
    {
        CloudEmulator first(options);
        ASSERT_TRUE(first.start());
        sts = first.issueSts();
        caPem = fileText(first.caFile());
        ASSERT_FALSE(caPem.empty());
    }
    for (const char* secret : {"tls/ca-key.pem", "sts-signing.key"}) EXPECT_EQ(modeOf(dir / secret), 0600u) << secret;

    CloudEmulator second(options);
    ASSERT_TRUE(second.start());
    EXPECT_EQ(second.endpoint().substr(0, 8), "https://");
    EXPECT_EQ(fileText(second.caFile()), caPem);
    httplib::SSLClient untrusting("127.0.0.1", second.port());  // without the CA file: not trusted
    untrusting.enable_server_certificate_verification(true);
    EXPECT_FALSE(untrusting.Get(kTrack));
    // A client holding the old CA file and the old credentials is served by the new run.
    httplib::SSLClient client("127.0.0.1", second.port());
    client.set_ca_cert_path(second.caFile().c_str());
    client.enable_server_certificate_verification(true);
    client.set_read_timeout(20);
    const std::string target = "/" + options.bucket + "/kept.txt";
    auto putKept = [&](auto& via, const Key& key, const std::string& body) {  // the status, 0 for no answer
        auto res = via.Put(target, signedHeaders(key, "PUT", target, "text/plain"), body, "text/plain");
        return res ? res->status : 0;
    };
    Key key{sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken};
    ASSERT_EQ(putKept(client, key, "kept"), 200);
    // A token altered by one character is still refused.
    auto forged = sts.SecurityToken;
    forged[10] = forged[10] == 'A' ? 'B' : 'A';
    EXPECT_EQ(putKept(client, Key{sts.AccessKeyId, sts.AccessKeySecret, forged}, "x"), 403);
    EXPECT_EQ(second.objectBytes(options.bucket, "kept.txt"), "kept");

    // Without the storage directory nothing is kept: a new cloud knows neither.
    CloudEmulator fresh;
    ASSERT_TRUE(fresh.start());
    httplib::Client plain("127.0.0.1", fresh.port());
    plain.set_read_timeout(20);
    EXPECT_EQ(putKept(plain, key, "kept"), 403);
}

}  // namespace
}  // namespace quorvane::emulator
