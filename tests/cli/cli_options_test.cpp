// `quorvane upload` options end to end, the built program against an emulator this test runs: where
// credentials come from, which key each file gets, directories with filters, several files at once,
// the rate limit, dry runs, reruns of stored files, bounded retries, server text made safe to print,
// empty files and files that are not files, TLS, and signatures of each version.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <set>

#include "cli/cli_fixture.h"

namespace quorvane {
namespace {
using emulator::Fault;

class CliOptions : public CliUploadToService {
protected:
    // Direct-upload options without credentials.
    std::vector<std::string> target(std::vector<std::string> args) {
        std::vector<std::string> all{"upload", "--json", "--endpoint", cloud_.endpoint(), "--region",
                                     cloud_.options().region, "--bucket", cloud_.options().bucket};
        all.insert(all.end(), args.begin(), args.end());
        return all;
    }
    std::vector<std::pair<std::string, std::string>> rootEnv() const {
        return {{"OSS_ACCESS_KEY_ID", cloud_.options().accessKeyId},
                {"OSS_ACCESS_KEY_SECRET", cloud_.options().accessKeySecret}};
    }
    // `upload` of `args` with the root keys in the environment, expecting exit status `code`.
    std::unique_ptr<CliProcess> upload(int code, std::vector<std::string> args) {
        return ran(code, target(std::move(args)), rootEnv());
    }
    bool stored(const std::string& key, const std::string& file) const {
        auto bytes = cloud_.objectBytes(cloud_.options().bucket, key);
        return bytes && *bytes == contents_.at(file);
    }
    std::size_t count(const char* operation) const { return cloud_.requests(operation).size(); }
    void expectNoSecretIn(const CliProcess& process, const std::vector<std::string>& secrets) {
        for (const auto& secret : secrets) {
            for (const auto& line : process.lines()) EXPECT_EQ(line.find(secret), std::string::npos) << line;
            EXPECT_EQ(process.errors().find(secret), std::string::npos) << process.errors();
        }
    }
};

TEST_F(CliOptions, CredentialsComeFromTheEnvironmentOrAProfileAndAreNeverPrinted) {
    const auto& o = cloud_.options();
    auto file = makeFile("env.bin", 150000, 11);
    auto log = root_ / "engine.log";
    auto fromEnv = upload(0, {"--log-file", log.string(), file});
    EXPECT_TRUE(stored("env.bin", file));
    std::ifstream logFile(log);
    std::string logText((std::istreambuf_iterator<char>(logFile)), std::istreambuf_iterator<char>());
    EXPECT_NE(logText.find("env.bin"), std::string::npos);  // the engine's steps went there
    EXPECT_EQ(logText.find(o.accessKeySecret), std::string::npos);

    // The Alibaba Cloud names, with a security token and no expiry.
    auto sts = cloud_.issueSts();
    auto tokenFile = makeFile("token.bin", 1000, 12);
    auto fromStsEnv = ran(0, target({tokenFile}), {{"ALIBABA_CLOUD_ACCESS_KEY_ID", sts.AccessKeyId},
                                                   {"ALIBABA_CLOUD_ACCESS_KEY_SECRET", sts.AccessKeySecret},
                                                   {"ALIBABA_CLOUD_SECURITY_TOKEN", sts.SecurityToken}});
    EXPECT_TRUE(stored("token.bin", tokenFile));

    fs::create_directories(root_ / "config" / "quorvane");
    std::ofstream(root_ / "config" / "quorvane" / "credentials")
        << "[default]\naccess_key_id = NoSuchKey\naccess_key_secret = nothing\n\n[ci]\naccess_key_id = "
        << o.accessKeyId << "\naccess_key_secret = " << o.accessKeySecret << "\n";
    auto profileFile = makeFile("profile.bin", 2000, 13);
    auto fromProfile = ran(0, target({"--profile", "ci", "--key", "dir/named.bin", profileFile}));
    EXPECT_TRUE(stored("dir/named.bin", profileFile));
    // Without --profile the default one is used: its key is refused by the service, the file fails.
    auto fromDefault = ran(1, target({"--key", "refused.bin", profileFile}));
    EXPECT_EQ(only(*fromDefault, "failure")["file"], profileFile);
    EXPECT_FALSE(cloud_.object(o.bucket, "refused.bin"));

    for (const auto* process : {fromEnv.get(), fromStsEnv.get(), fromProfile.get(), fromDefault.get()})
        expectNoSecretIn(*process, {o.accessKeySecret, sts.AccessKeySecret, sts.SecurityToken});

    // A media file with a named bucket goes there and never to a video service.
    auto clip = makeFile("clip.mp4", 150000, 31);
    upload(0, {clip});
    EXPECT_TRUE(stored("clip.mp4", clip));
    for (const auto& request : cloud_.requests()) EXPECT_EQ(request.service, "oss") << request.operation;
}

// Bad credential input, files that would share a key, things that are not files and conflicting
// options: exit 2 with the reason, as an event too with --json, and nothing is sent.
TEST_F(CliOptions, UsageErrorsExitTwoBeforeAnythingIsSent) {
    auto file = makeFile("x.bin", 1000, 14);
    auto first = makeFile("d1/same.bin", 1000, 15);
    auto second = makeFile("d2/same.bin", 2000, 16);
    auto clip = makeFile("clip.mp4", 1000, 31);
    fs::create_directories(root_ / "config" / "quorvane");
    std::ofstream(root_ / "config" / "quorvane" / "credentials")
        << "[default]\naccess_key_id = a\naccess_key_secret = b\n";
    std::ofstream(root_ / "broken.ini") << "[default\naccess_key_id\n";
    fs::create_directories(root_ / "folder.ini");
    auto fifo = root_ / "pipe";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const auto keys = rootEnv();
    const std::string k = "oss://" + cloud_.options().bucket + "/k";
    struct Case {
        std::vector<std::string> args;
        std::vector<std::pair<std::string, std::string>> env;
        std::string message;
    };
    const std::vector<Case> cases = {
        {{"--profile", "nope", file}, {}, "no profile 'nope'"},
        {{"--credentials-file", (root_ / "missing.ini").string(), file}, {}, "does not exist"},
        {{"--credentials-file", (root_ / "broken.ini").string(), file}, {}, "cannot parse line"},
        {{"--credentials-file", (root_ / "folder.ini").string(), file}, {}, "not a regular file"},
        {{file}, {{"OSS_ACCESS_KEY_ID", "only-half"}}, "half a key pair"},
        {{"--key-id", "k", "--secret", "s", "--sts-token", "t", "--expire", "tomorrow", file}, {}, "bad --expire"},
        {{"--key-id", "k", "--secret", "s", "--sts-token", "t", "--expire", "2001-01-01T00:00:00Z", file}, {},
         "has already passed"},
        {{"--key-id", "k", "--secret", "s", "--expire", "2099-01-01T00:00:00Z", file}, {}, "--expire goes with"},
        {{first, second}, keys, "would both be stored as 'same.bin'"},
        {{"-r", (root_ / "d1").string(), (root_ / "d2").string()}, keys, ""},
        {{"--key", "k.bin", first, second}, keys, "--key names one object"},
        {{(root_ / "d1").string()}, keys, "use -r"},
        {{"--bwlimit", "fast", file}, keys, ""},
        {{"--vod", clip}, keys, "--vod uploads go where the video service says"},
        {{fifo.string()}, keys, "is a FIFO"},
        {{"/dev/zero"}, keys, "is a device"},
        {{"--key", "a", "--prefix", "b/", file}, keys, "excludes"},
        {{"--quiet", file}, keys, "excludes"},
        {{"--include", "*.bin", file}, keys, "go with -r"},
        {{file, "s3://bucket/key"}, keys, "destinations are written oss://"},
        {{"--key", "other.bin", file, k}, keys, "the key is given twice"},
        {{""}, keys, "an empty file name"},
        {{"--dry-run", file, ""}, keys, "an empty file name"},
        {{"-r", ""}, keys, "an empty file name"},
        // Its size reads 0, yet it reads text: stored by its size it would be an empty object.
        {{"/proc/self/status"}, keys, "/proc/self/status: its size reads 0 but it has content"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message + " " + c.args.back());
        auto process = ran(2, target(c.args), c.env);
        EXPECT_NE(process->errors().find(c.message), std::string::npos) << process->errors();
        auto error = only(*process, "error");
        EXPECT_EQ(error["kind"], "usage");
        EXPECT_EQ(error["exit"], 2);
        EXPECT_TRUE(error["time"].is_string());
    }
    auto disagree = ran(2, {"upload", "--endpoint", cloud_.endpoint(), "--bucket", "other", file, k}, keys);
    EXPECT_NE(disagree->errors().find("disagree"), std::string::npos) << disagree->errors();
    EXPECT_TRUE(cloud_.requests().empty());

    // Different keys for the two files of one name: both arrive.
    upload(0, {first, "--prefix", "one/", "oss://" + cloud_.options().bucket + "/"});
    upload(0, {second, "oss://" + cloud_.options().bucket + "/two/same.bin"});
    EXPECT_TRUE(stored("one/same.bin", first));
    EXPECT_TRUE(stored("two/same.bin", second));
}

TEST_F(CliOptions, RecursiveUploadKeepsRelativePathsHonoursFiltersAndTheRateLimitAndADryRunSendsNothing) {
    auto a = makeFile("tree/a.txt", 100, 17);
    auto b = makeFile("tree/sub/b.txt", 200, 18);
    makeFile("tree/sub/c.log", 300, 19);
    makeFile("tree/skip/d.txt", 400, 20);
    makeFile("dry/a.bin", 1000, 23);
    makeFile("dry/b.mp4", 1000, 24);
    auto dry = upload(0, {"--dry-run", "-r", (root_ / "dry").string()});
    auto planned = events(*dry, "planned");
    ASSERT_EQ(planned.size(), 2u);
    EXPECT_EQ(planned[0]["object"], "a.bin");
    EXPECT_EQ(planned[1]["object"], "b.mp4");  // a named bucket takes media files too
    EXPECT_TRUE(cloud_.requests().empty());

    // Each filter option takes one glob: the directory after them is not taken for one.
    auto process =
        upload(0, {"-r", "--prefix", "up/", "--include", "*.txt", "--exclude", "skip/*", (root_ / "tree").string()});
    EXPECT_TRUE(stored("up/a.txt", a));
    EXPECT_TRUE(stored("up/sub/b.txt", b));
    EXPECT_EQ(events(*process, "success").size(), 2u);
    EXPECT_FALSE(cloud_.object(cloud_.options().bucket, "up/sub/c.log"));
    EXPECT_FALSE(cloud_.object(cloud_.options().bucket, "up/skip/d.txt"));

    // The rate limit holds an upload back. A lower bound only: a slower machine makes the upload longer,
    // never shorter. The rate itself is measured in bench/.
    auto slow = makeFile("slow.bin", 1 << 20, 22);
    auto began = std::chrono::steady_clock::now();
    upload(0, {"--bwlimit", "256K", slow});
    EXPECT_GT(std::chrono::steady_clock::now() - began, 2s);
    EXPECT_TRUE(stored("slow.bin", slow));
}

TEST_F(CliOptions, FortyFilesFourAtATimeAllArriveIntact) {
    std::mt19937 sizes(21);
    for (int i = 0; i < 40; ++i)
        makeFile("many/f" + std::to_string(i) + ".bin", 1 + sizes() % (300 * 1024), 100 + static_cast<unsigned>(i));
    // The first requests are held back, so four files are under way before any can end: a file larger
    // than a part begins with an initiation, a smaller one is a single put.
    for (const char* first : {"InitiateMultipartUpload", "PutObject"})
        for (int i = 0; i < 4; ++i) cloud_.addFault(Fault::delay(first, 3000));
    auto process = upload(0, {"-r", "--jobs", "4", "--part-size", "102400", (root_ / "many").string()});
    for (int i = 0; i < 40; ++i) {
        auto name = "f" + std::to_string(i) + ".bin";
        EXPECT_TRUE(stored(name, (root_ / "many" / name).string())) << name;
    }
    int started = 0;
    for (const auto& line : process->lines()) {
        auto event = foundation::parseJson(line);
        if (event && (*event)["event"] == "success") break;
        started += event && (*event)["event"] == "started";
    }
    EXPECT_EQ(started, 4);
    EXPECT_EQ(only(*process, "summary")["uploaded"], 40);
}

TEST_F(CliOptions, ARerunOfStoredFilesSendsNothingAndCountsNothingSent) {
    auto big = makeFile("again/big.bin", 600 * 1024, 25);
    auto small = makeFile("again/small.bin", 5000, 26);
    auto first = upload(0, {"-r", "--part-size", "204800", (root_ / "again").string()});
    ASSERT_EQ(only(*first, "summary")["bytes"], 600 * 1024 + 5000);
    const auto requests = [&] {
        return count("PutObject") + count("InitiateMultipartUpload") + count("UploadPart") +
               count("CompleteMultipartUpload");
    };
    const auto before = requests();

    auto second = upload(0, {"-r", "--part-size", "204800", (root_ / "again").string()});
    EXPECT_EQ(events(*second, "skipped").size(), 2u);
    EXPECT_EQ(requests(), before);
    auto summary = only(*second, "summary");
    EXPECT_EQ(summary["bytes"], 0);
    EXPECT_EQ(summary["skipped"], 2);
    EXPECT_EQ(summary["stored"], 600 * 1024 + 5000);

    // The same size with other bytes is sent again.
    makeFile("again/small.bin", 5000, 27);
    auto third = upload(0, {"-r", (root_ / "again").string()});
    EXPECT_EQ(events(*third, "skipped").size(), 1u);
    EXPECT_TRUE(stored("small.bin", small));
    EXPECT_TRUE(stored("big.bin", big));
}

TEST_F(CliOptions, ServerTextIsStrippedOfControlsAndSecretsInEveryMode) {
    auto sts = cloud_.issueSts();
    auto file = makeFile("odd.bin", 1000, 29);
    const std::string nasty = "bad \x1b[31mred\x1b[0m \xff\xfe x-oss-security-token:" + sts.SecurityToken + " " +
                              sts.AccessKeySecret;
    for (bool json : {false, true}) {
        cloud_.clearFaults();
        cloud_.addFault(Fault::error("PutObject", 400, "InvalidArgument", nasty));
        auto args = target({file});
        if (!json) args.erase(std::find(args.begin(), args.end(), "--json"));
        auto process = ran(1, args, {{"OSS_ACCESS_KEY_ID", sts.AccessKeyId},
                                     {"OSS_ACCESS_KEY_SECRET", sts.AccessKeySecret},
                                     {"OSS_SESSION_TOKEN", sts.SecurityToken}});
        std::string all = process->errors();
        for (const auto& line : process->lines()) all += line + "\n";
        for (const std::string& gone :
             {std::string("\x1b"), std::string("\xff"), sts.SecurityToken, sts.AccessKeySecret})
            EXPECT_EQ(all.find(gone), std::string::npos) << all;
        EXPECT_NE(all.find("bad"), std::string::npos) << all;
        for (const auto& line : process->lines()) EXPECT_TRUE(!json || foundation::parseJson(line)) << line;
    }
}

// Round trips per file: a file no larger than a part is asked about and put, two requests; a larger one
// is initiated, sent in parts and completed. The listener hears the same either way. An empty file is
// an empty object, and a key is stored exactly as given.
TEST_F(CliOptions, AFileNoLargerThanAPartIsOneHeadAndOnePut) {
    auto small = makeFile("one.bin", 102400, 41);
    auto large = makeFile("two.bin", 102401, 42);
    auto process = upload(0, {"--part-size", "102400", "--jobs", "1", small, large});
    EXPECT_TRUE(stored("one.bin", small));
    EXPECT_TRUE(stored("two.bin", large));
    const std::pair<const char*, std::size_t> requests[] = {{"HeadObject", 2}, {"PutObject", 1},
        {"InitiateMultipartUpload", 1}, {"UploadPart", 2}, {"CompleteMultipartUpload", 1}};
    for (const auto& [operation, n] : requests) EXPECT_EQ(count(operation), n) << operation;
    for (const char* kind : {"started", "success"}) {
        auto seen = events(*process, kind);
        ASSERT_EQ(seen.size(), 2u) << kind;
        EXPECT_EQ(seen[0]["file"], small) << kind;
    }
    std::uint64_t lastOfSmall = 0;
    for (const auto& event : events(*process, "progress"))
        if (event["file"] == small) lastOfSmall = event["uploaded"].get<std::uint64_t>();
    EXPECT_EQ(lastOfSmall, 102400u);
    // Nothing of the put is left to resume: a rerun only asks, and sends nothing.
    auto again = upload(0, {"--part-size", "102400", small});
    EXPECT_EQ(count("PutObject"), 1u);
    EXPECT_EQ(events(*again, "skipped").size(), 1u);

    upload(0, {makeFile("empty.bin", 0, 30)});
    auto bytes = cloud_.objectBytes(cloud_.options().bucket, "empty.bin");
    ASSERT_TRUE(bytes);
    EXPECT_TRUE(bytes->empty());
    EXPECT_EQ(count("PutObject"), 2u);

    // Empty segments, dot segments and characters a URL gives meaning to are parts of the key.
    auto file = makeFile("x.jpg", 150000, 35);
    std::set<std::string> keys{"one.bin", "two.bin", "empty.bin"};
    for (std::string key : {"photos//2024/x.jpg", "x/a/../b", "dir/./ü ?#%25+.bin/", "a/b/.."}) {
        EXPECT_EQ(only(*upload(0, {"--key", key, file}), "success")["object"], key);
        EXPECT_TRUE(stored(key, file)) << key;
        keys.insert(key);
    }
    std::set<std::string> storedKeys;
    for (const auto& object : cloud_.objects()) storedKeys.insert(object.key);
    EXPECT_EQ(storedKeys, keys);
}

TEST_F(CliOptions, VodSignatureThreeSignsVideoServiceCallsAcs3AndOneKeepsHmacSha1) {
    auto vod = [&](int code, std::vector<std::string> extra, const std::string& photo) {
        std::vector<std::string> args{"upload",   "--json",          "--vod-endpoint", cloud_.endpoint(),
                                      "--key-id", sts_.AccessKeyId,  "--secret",       sts_.AccessKeySecret,
                                      "--sts-token", sts_.SecurityToken, "--expire",   sts_.Expiration};
        args.insert(args.end(), extra.begin(), extra.end());
        args.push_back(photo);
        return ran(code, args);
    };
    auto acs3 = vod(0, {"--vod-signature", "3"}, makeFile("first.png", 20000, 33));
    vod(0, {}, makeFile("second.png", 20000, 34));
    auto calls = cloud_.requests("CreateUploadImage");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].header("Authorization").value_or("").rfind("ACS3-HMAC-SHA256 ", 0), 0u);
    EXPECT_FALSE(calls[1].header("Authorization"));
    EXPECT_NE(calls[1].query.find("SignatureMethod=HMAC-SHA1"), std::string::npos);
    EXPECT_EQ(cloud_.images().size(), 2u);
    expectNoSecretIn(*acs3, {sts_.AccessKeySecret, sts_.SecurityToken});
    vod(2, {"--vod-signature", "2"}, makeFile("third.png", 20000, 35));
}

// Retries are bounded per file and each is shown with its count, limit, cause and wait: the engine's
// retries of the upload and the object-storage client's retries of each request.
TEST_F(CliOptions, RetriesAreBoundedPerFileAndEachIsShownWithItsCountLimitCauseAndWait) {
    auto flaky = makeFile("flaky.bin", 2 << 20, 28);
    // Every part request breaks after 300 KB: bytes keep moving, so the engine's own count starts over.
    for (int i = 0; i < 60; ++i) cloud_.addFault(Fault::reset("UploadPart", 300 * 1024));
    auto process = upload(1, {"--retries", "2", "--part-size", "1048576", flaky});
    // Each part sent again counts, inside the object-storage client or by the engine.
    EXPECT_EQ(events(*process, "retry").size() + events(*process, "requestRetry").size(), 2u);
    EXPECT_EQ(only(*process, "failure")["code"], "RetryLimit");
    std::uint64_t last = 0;
    for (const auto& event : events(*process, "progress")) {  // progress never goes back
        EXPECT_GE(event["uploaded"].get<std::uint64_t>(), last);
        last = event["uploaded"].get<std::uint64_t>();
    }
    cloud_.clearFaults();

    // An HTTP 500 is sent again by the object-storage client, but the upload does not retry it: it fails.
    auto file = makeFile("five.bin", 300 * 1024, 37);
    for (int i = 0; i < 3; ++i) cloud_.addFault(Fault::error("InitiateMultipartUpload", 500, "InternalError"));
    auto internal = upload(1, {"--retries", "3", "--part-size", "102400", file});
    EXPECT_TRUE(events(*internal, "retry").empty());
    auto requestRetries = events(*internal, "requestRetry");
    ASSERT_EQ(requestRetries.size(), 2u);
    EXPECT_EQ(requestRetries[1]["cause"], "HTTP 500 InternalError");
    EXPECT_EQ(only(*internal, "failure")["code"], "InternalError");

    // With the service down, the lookup that could not ask is the first; then the object-storage
    // client's own sends of the request, counted in the same sequence, until the file's three are spent.
    auto args = target({"--retries", "3", makeFile("down.bin", 300 * 1024, 36)});
    cloud_.stop();  // connections are refused from now on
    auto down = ran(1, args, rootEnv());
    std::vector<Value> retries;
    for (const auto& line : down->lines())
        if (auto event = foundation::parseJson(line);
            event && (event->value("event", "") == "retry" || event->value("event", "") == "requestRetry"))
            retries.push_back(*event);
    ASSERT_EQ(retries.size(), 3u) << down->errors();
    EXPECT_EQ(retries[0]["event"], "retry");
    EXPECT_EQ(retries[0]["wait"], 0.0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(retries[i]["count"], i + 1);
        EXPECT_EQ(retries[i]["limit"], 3);
        EXPECT_NE(retries[i]["cause"].get<std::string>().find("Network error"), std::string::npos) << retries[i];
        if (i > 0) {
            EXPECT_EQ(retries[i]["event"], "requestRetry");
            EXPECT_GT(retries[i]["wait"].get<double>(), 0.0);
        }
    }
    EXPECT_EQ(only(*down, "failure")["code"], "RetryLimit");
}

// The emulator's CA is trusted with --ca-file; without it the refused certificate is final: no retry,
// one failure.
TEST_F(CliUploadToEmulator, TheCaFileIsTrustedAndAnUntrustedCertificateFailsAtOnce) {
    emulator::EmulatorOptions options;
    options.https = true;
    startCloud(options);
    auto file = makeFile("tls.bin", 150000, 33);
    auto args = [&](std::vector<std::string> extra) {
        extra.insert(extra.begin(), {"--region", cloud_->options().region, "--retries", "3"});
        return uploadArgs(extra);
    };
    auto untrusted = ran(1, args({file}), keys());
    EXPECT_TRUE(events(*untrusted, "retry").empty());
    EXPECT_EQ(events(*untrusted, "failure").size(), 1u);
    ran(0, args({"--ca-file", cloud_->caFile(), file}), keys());
    EXPECT_TRUE(cloud_->objectBytes(cloud_->options().bucket, "tls.bin"));
}

// `--oss` against a cloud that takes only V4 signatures, in a region of its own and with its clock ahead.
class CliSignature : public CliUploadToEmulator {
protected:
    void SetUp() override {
        CliUpload::SetUp();
        emulator::EmulatorOptions options;
        options.acceptV1Signatures = false;
        options.region = "cn-hangzhou";
        options.clockSkew = std::chrono::minutes(20);
        startCloud(options);
    }
    std::vector<std::string> args(std::vector<std::string> extra) const {
        extra.insert(extra.begin(), {"--oss", "--retries", "1", "--part-size", "262144"});
        return uploadArgs(extra);
    }
};

TEST_F(CliSignature, UploadsSignV4ForTheRegionOfTheFlagOrTheProfileAndRefusalsAreTheServices) {
    auto file = makeFile("f.bin", 1000, 34);
    // No usable region, or a signature version that does not exist: usage errors before anything is sent.
    const std::pair<std::vector<std::string>, std::string> usage[] = {
        {{file}, "--region"},
        {{"--region", "CN_Hangzhou", file}, "bad --region 'CN_Hangzhou'"},
        {{"--signature-version", "2", "--region", "cn-hangzhou", file}, "--signature-version"},
    };
    for (const auto& [extra, message] : usage)
        EXPECT_NE(ran(2, args(extra), keys())->errors().find(message), std::string::npos) << message;
    EXPECT_TRUE(cloud_->requests().empty());

    auto big = makeFile("big.bin", 700 * 1024, 31);
    auto small = makeFile("small.bin", 5000, 32);
    ran(0, args({"--region", "cn-hangzhou", big, small}), keys());
    EXPECT_EQ(cloud_->objectBytes(cloud_->options().bucket, "big.bin"), contents_[big]);
    EXPECT_EQ(cloud_->objectBytes(cloud_->options().bucket, "small.bin"), contents_[small]);
    for (const auto& r : cloud_->requests())
        EXPECT_EQ(r.header("Authorization").value_or("").rfind("OSS4-HMAC-SHA256 ", 0), 0u) << r.operation;

    // The profile's region, with its keys; nothing on the command line names one.
    fs::create_directories(root_ / "config" / "quorvane");
    std::ofstream(root_ / "config" / "quorvane" / "credentials")
        << "[work]\naccess_key_id = " << cloud_->options().accessKeyId
        << "\naccess_key_secret = " << cloud_->options().accessKeySecret << "\nregion = cn-hangzhou\n";
    auto other = makeFile("profile.bin", 1000, 33);
    ran(0, args({"--profile", "work", other}));
    EXPECT_EQ(cloud_->objectBytes(cloud_->options().bucket, "profile.bin"), contents_[other]);

    // V1 to a bucket that refuses it, and V4 for the wrong region: the service's codes, one file failed.
    for (const auto& extra : {std::vector<std::string>{"--signature-version", "1", file},
                              std::vector<std::string>{"--region", "cn-beijing", file}}) {
        const auto text = foundation::toJsonText(only(*ran(1, args(extra), keys()), "failure"));
        EXPECT_TRUE(text.find("AccessDenied") != std::string::npos || text.find("InvalidArgument") != std::string::npos)
            << text;
    }
    EXPECT_FALSE(cloud_->object(cloud_->options().bucket, "f.bin"));
}

}  // namespace
}  // namespace quorvane
