// `quorvane upload` options end to end, the built program against an emulator this test runs: where
// credentials come from, which key each file gets, directories with filters, several files at once,
// the rate limit, dry runs, reruns of stored files, bounded retries, server text made safe to print,
// empty files and files that are not files.
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
    std::vector<std::string> withKeys(std::vector<std::string> args) {
        auto all = target(std::move(args));
        all.insert(all.end(), {"--key-id", cloud_.options().accessKeyId, "--secret", cloud_.options().accessKeySecret});
        return all;
    }
    std::vector<std::pair<std::string, std::string>> rootEnv() const {
        return {{"OSS_ACCESS_KEY_ID", cloud_.options().accessKeyId},
                {"OSS_ACCESS_KEY_SECRET", cloud_.options().accessKeySecret}};
    }
    bool stored(const std::string& key, const std::string& file) const {
        auto bytes = cloud_.objectBytes(cloud_.options().bucket, key);
        return bytes && *bytes == contents_.at(file);
    }
    // Requests that carry file bytes or start an upload.
    std::size_t uploadRequests() const {
        std::size_t n = 0;
        for (const char* op : {"PutObject", "InitiateMultipartUpload", "UploadPart", "CompleteMultipartUpload"})
            n += cloud_.requests(op).size();
        return n;
    }
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
    auto fromEnv = run(target({"--log-file", log.string(), file}), rootEnv());
    ASSERT_EQ(fromEnv->wait(kGenerous), 0) << fromEnv->errors();
    EXPECT_TRUE(stored("env.bin", file));
    std::ifstream logFile(log);
    std::string logText((std::istreambuf_iterator<char>(logFile)), std::istreambuf_iterator<char>());
    EXPECT_NE(logText.find("env.bin"), std::string::npos);  // the engine's steps went there
    EXPECT_EQ(logText.find(o.accessKeySecret), std::string::npos);

    // The Alibaba Cloud names, with a security token and no expiry.
    auto sts = cloud_.issueSts();
    auto tokenFile = makeFile("token.bin", 1000, 12);
    auto fromStsEnv = run(target({tokenFile}), {{"ALIBABA_CLOUD_ACCESS_KEY_ID", sts.AccessKeyId},
                                                {"ALIBABA_CLOUD_ACCESS_KEY_SECRET", sts.AccessKeySecret},
                                                {"ALIBABA_CLOUD_SECURITY_TOKEN", sts.SecurityToken}});
    ASSERT_EQ(fromStsEnv->wait(kGenerous), 0) << fromStsEnv->errors();
    EXPECT_TRUE(stored("token.bin", tokenFile));

    fs::create_directories(root_ / "config" / "quorvane");
    std::ofstream(root_ / "config" / "quorvane" / "credentials")
        << "[default]\naccess_key_id = NoSuchKey\naccess_key_secret = nothing\n\n[ci]\naccess_key_id = "
        << o.accessKeyId << "\naccess_key_secret = " << o.accessKeySecret << "\n";
    auto profileFile = makeFile("profile.bin", 2000, 13);
    auto fromProfile = run(target({"--profile", "ci", "--key", "dir/named.bin", profileFile}));
    ASSERT_EQ(fromProfile->wait(kGenerous), 0) << fromProfile->errors();
    EXPECT_TRUE(stored("dir/named.bin", profileFile));
    // Without --profile the default one is used: its key is refused by the service, the file fails.
    auto fromDefault = run(target({"--key", "refused.bin", profileFile}));
    EXPECT_EQ(fromDefault->wait(kGenerous), 1) << fromDefault->errors();
    auto failures = events(*fromDefault, "failure");
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0]["file"], profileFile);
    EXPECT_FALSE(cloud_.object(o.bucket, "refused.bin"));

    for (const auto* process : {fromEnv.get(), fromStsEnv.get(), fromProfile.get(), fromDefault.get()})
        expectNoSecretIn(*process, {o.accessKeySecret, sts.AccessKeySecret, sts.SecurityToken});
}

TEST_F(CliOptions, BadCredentialInputIsAUsageErrorBeforeAnythingIsSent) {
    auto file = makeFile("x.bin", 1000, 14);
    fs::create_directories(root_ / "config" / "quorvane");
    auto profiles = root_ / "config" / "quorvane" / "credentials";
    std::ofstream(profiles) << "[default]\naccess_key_id = a\naccess_key_secret = b\n";
    std::ofstream(root_ / "broken.ini") << "[default\naccess_key_id\n";
    fs::create_directories(root_ / "folder.ini");
    struct Case {
        std::vector<std::string> args;
        std::vector<std::pair<std::string, std::string>> env;
        std::string message;
    };
    std::vector<Case> cases = {
        {{"--profile", "nope", file}, {}, "no profile 'nope'"},
        {{"--credentials-file", (root_ / "missing.ini").string(), file}, {}, "does not exist"},
        {{"--credentials-file", (root_ / "broken.ini").string(), file}, {}, "cannot parse line"},
        {{"--credentials-file", (root_ / "folder.ini").string(), file}, {}, "not a regular file"},
        {{file}, {{"OSS_ACCESS_KEY_ID", "only-half"}}, "half a key pair"},
        {{"--key-id", "k", "--secret", "s", "--sts-token", "t", "--expire", "tomorrow", file}, {}, "bad --expire"},
        {{"--key-id", "k", "--secret", "s", "--sts-token", "t", "--expire", "2001-01-01T00:00:00Z", file}, {},
         "has already passed"},
        {{"--key-id", "k", "--secret", "s", "--expire", "2099-01-01T00:00:00Z", file}, {}, "--expire goes with"},
    };
    for (const auto& c : cases) {
        auto process = run(target(c.args), c.env);
        EXPECT_EQ(process->wait(kGenerous), 2) << c.message;
        EXPECT_NE(process->errors().find(c.message), std::string::npos) << process->errors();
        // With --json the error is an event as well.
        auto errors = events(*process, "error");
        ASSERT_EQ(errors.size(), 1u) << c.message;
        EXPECT_EQ(errors[0]["kind"], "usage");
        EXPECT_EQ(errors[0]["exit"], 2);
        EXPECT_TRUE(errors[0]["time"].is_string());
    }
    EXPECT_TRUE(cloud_.requests().empty());
}

TEST_F(CliOptions, FilesThatWouldShareAKeyAreRefusedBeforeAnythingIsSent) {
    auto first = makeFile("d1/same.bin", 1000, 15);
    auto second = makeFile("d2/same.bin", 2000, 16);
    auto process = run(withKeys({first, second}));
    EXPECT_EQ(process->wait(kGenerous), 2);
    EXPECT_NE(process->errors().find("would both be stored as 'same.bin'"), std::string::npos) << process->errors();
    auto recursive = run(withKeys({"-r", (root_ / "d1").string(), (root_ / "d2").string()}));
    EXPECT_EQ(recursive->wait(kGenerous), 2);
    auto oneKey = run(withKeys({"--key", "k.bin", first, second}));
    EXPECT_EQ(oneKey->wait(kGenerous), 2);
    EXPECT_NE(oneKey->errors().find("--key names one object"), std::string::npos) << oneKey->errors();
    EXPECT_TRUE(cloud_.requests().empty());

    // Different keys for the two: both arrive.
    auto apart = run(target({first, "--prefix", "one/", "oss://" + cloud_.options().bucket + "/"}), rootEnv());
    ASSERT_EQ(apart->wait(kGenerous), 0) << apart->errors();
    auto other = run(target({second, "oss://" + cloud_.options().bucket + "/two/same.bin"}), rootEnv());
    ASSERT_EQ(other->wait(kGenerous), 0) << other->errors();
    EXPECT_TRUE(stored("one/same.bin", first));
    EXPECT_TRUE(stored("two/same.bin", second));
}

TEST_F(CliOptions, RecursiveUploadKeepsRelativePathsAndHonoursFilters) {
    auto a = makeFile("tree/a.txt", 100, 17);
    auto b = makeFile("tree/sub/b.txt", 200, 18);
    makeFile("tree/sub/c.log", 300, 19);
    makeFile("tree/skip/d.txt", 400, 20);
    // Each filter option takes one glob: the directory after them is not taken for one.
    auto process = run(target({"-r", "--prefix", "up/", "--include", "*.txt", "--exclude", "skip/*",
                               (root_ / "tree").string()}),
                       rootEnv());
    ASSERT_EQ(process->wait(kGenerous), 0) << process->errors();
    EXPECT_TRUE(stored("up/a.txt", a));
    EXPECT_TRUE(stored("up/sub/b.txt", b));
    EXPECT_EQ(events(*process, "success").size(), 2u);
    EXPECT_FALSE(cloud_.object(cloud_.options().bucket, "up/sub/c.log"));
    EXPECT_FALSE(cloud_.object(cloud_.options().bucket, "up/skip/d.txt"));
    // Without -r a directory is refused with a hint.
    auto flat = run(target({(root_ / "tree").string()}), rootEnv());
    EXPECT_EQ(flat->wait(kGenerous), 2);
    EXPECT_NE(flat->errors().find("use -r"), std::string::npos);
}

TEST_F(CliOptions, FortyFilesFourAtATimeAllArriveIntact) {
    std::mt19937 sizes(21);
    for (int i = 0; i < 40; ++i)
        makeFile("many/f" + std::to_string(i) + ".bin", 1 + sizes() % (300 * 1024), 100 + static_cast<unsigned>(i));
    // The first requests are held back, so four files are under way before any can end: a file larger
    // than a part begins with an initiation, a smaller one is a single put.
    for (const char* first : {"InitiateMultipartUpload", "PutObject"})
        for (int i = 0; i < 4; ++i) cloud_.addFault(Fault::delay(first, 3000));
    auto process = run(target({"-r", "--jobs", "4", "--part-size", "102400", (root_ / "many").string()}), rootEnv());
    ASSERT_EQ(process->wait(kGenerous), 0) << process->errors();
    for (int i = 0; i < 40; ++i) {
        auto name = "f" + std::to_string(i) + ".bin";
        EXPECT_TRUE(stored(name, (root_ / "many" / name).string())) << name;
    }
    int started = 0;
    for (const auto& line : process->lines()) {
        auto event = foundation::parseJson(line);
        if (!event) continue;
        if ((*event)["event"] == "started") ++started;
        if ((*event)["event"] == "success") break;
    }
    EXPECT_EQ(started, 4);
    auto summary = events(*process, "summary");
    ASSERT_EQ(summary.size(), 1u);
    EXPECT_EQ(summary[0]["uploaded"], 40);
}

// A lower bound only: a slower machine makes the upload longer, never shorter. The rate itself is
// measured in bench/.
TEST_F(CliOptions, BandwidthLimitHoldsTheUploadBack) {
    auto file = makeFile("slow.bin", 1 << 20, 22);
    auto began = std::chrono::steady_clock::now();
    auto process = run(target({"--bwlimit", "256K", file}), rootEnv());
    ASSERT_EQ(process->wait(kGenerous), 0) << process->errors();
    EXPECT_GT(std::chrono::steady_clock::now() - began, 2s);
    EXPECT_TRUE(stored("slow.bin", file));
    auto bad = run(target({"--bwlimit", "fast", file}), rootEnv());
    EXPECT_EQ(bad->wait(kGenerous), 2);
}

TEST_F(CliOptions, DryRunSendsNothing) {
    auto a = makeFile("dry/a.bin", 1000, 23);
    makeFile("dry/b.mp4", 1000, 24);
    auto process = run(target({"--dry-run", "-r", (root_ / "dry").string()}), rootEnv());
    ASSERT_EQ(process->wait(kGenerous), 0) << process->errors();
    auto planned = events(*process, "planned");
    ASSERT_EQ(planned.size(), 2u);
    EXPECT_EQ(planned[0]["object"], "a.bin");
    EXPECT_EQ(planned[1]["object"], "b.mp4");  // a named bucket takes media files too
    EXPECT_TRUE(cloud_.requests().empty());
}

TEST_F(CliOptions, ARerunOfStoredFilesSendsNothingAndCountsNothingSent) {
    auto big = makeFile("again/big.bin", 600 * 1024, 25);
    auto small = makeFile("again/small.bin", 5000, 26);
    auto first = run(target({"-r", "--part-size", "204800", (root_ / "again").string()}), rootEnv());
    ASSERT_EQ(first->wait(kGenerous), 0) << first->errors();
    ASSERT_EQ(events(*first, "summary").at(0)["bytes"], 600 * 1024 + 5000);
    const auto before = uploadRequests();

    auto second = run(target({"-r", "--part-size", "204800", (root_ / "again").string()}), rootEnv());
    ASSERT_EQ(second->wait(kGenerous), 0) << second->errors();
    EXPECT_EQ(events(*second, "skipped").size(), 2u);
    EXPECT_EQ(uploadRequests(), before);
    auto summary = events(*second, "summary").at(0);
    EXPECT_EQ(summary["bytes"], 0);
    EXPECT_EQ(summary["skipped"], 2);
    EXPECT_EQ(summary["stored"], 600 * 1024 + 5000);

    // The same size with other bytes is sent again.
    makeFile("again/small.bin", 5000, 27);
    auto third = run(target({"-r", (root_ / "again").string()}), rootEnv());
    ASSERT_EQ(third->wait(kGenerous), 0) << third->errors();
    EXPECT_EQ(events(*third, "skipped").size(), 1u);
    EXPECT_TRUE(stored("small.bin", small));
    EXPECT_TRUE(stored("big.bin", big));
}

TEST_F(CliOptions, RetriesAreBoundedPerFileAndProgressNeverGoesBack) {
    auto file = makeFile("flaky.bin", 2 << 20, 28);
    // Every part request breaks after 300 KB: bytes keep moving, so the engine's own count starts over.
    for (int i = 0; i < 60; ++i) cloud_.addFault(Fault::reset("UploadPart", 300 * 1024));
    auto process = run(target({"--retries", "2", "--part-size", "1048576", file}), rootEnv());
    EXPECT_EQ(process->wait(kGenerous), 1) << process->errors();
    // Each part sent again counts, inside the object-storage client or by the engine.
    EXPECT_EQ(events(*process, "retry").size() + events(*process, "requestRetry").size(), 2u);
    auto failures = events(*process, "failure");
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0]["code"], "RetryLimit");
    std::uint64_t last = 0;
    for (const auto& event : events(*process, "progress")) {
        EXPECT_GE(event["uploaded"].get<std::uint64_t>(), last);
        last = event["uploaded"].get<std::uint64_t>();
    }
}

TEST_F(CliOptions, ServerTextIsStrippedOfControlsAndSecretsInEveryMode) {
    auto sts = cloud_.issueSts();
    auto file = makeFile("odd.bin", 1000, 29);
    const std::string nasty = "bad \x1b[31mred\x1b[0m \xff\xfe x-oss-security-token:" + sts.SecurityToken + " " +
                              sts.AccessKeySecret;
    std::vector<std::pair<std::string, std::string>> env{{"OSS_ACCESS_KEY_ID", sts.AccessKeyId},
                                                         {"OSS_ACCESS_KEY_SECRET", sts.AccessKeySecret},
                                                         {"OSS_SESSION_TOKEN", sts.SecurityToken}};
    for (bool json : {false, true}) {
        cloud_.clearFaults();
        cloud_.addFault(Fault::error("PutObject", 400, "InvalidArgument", nasty));
        auto args = target({file});
        if (!json) args.erase(std::find(args.begin(), args.end(), "--json"));
        auto process = run(args, env);
        ASSERT_EQ(process->wait(kGenerous), 1) << process->errors();
        std::string all = process->errors();
        for (const auto& line : process->lines()) all += line + "\n";
        EXPECT_EQ(all.find('\x1b'), std::string::npos) << all;
        EXPECT_EQ(all.find("\xff"), std::string::npos) << all;
        EXPECT_EQ(all.find(sts.SecurityToken), std::string::npos) << all;
        EXPECT_EQ(all.find(sts.AccessKeySecret), std::string::npos) << all;
        EXPECT_NE(all.find("bad"), std::string::npos) << all;
        if (json) {
            for (const auto& line : process->lines()) EXPECT_TRUE(foundation::parseJson(line)) << line;
        }
    }
}

// Round trips per file: a file no larger than a part is asked about and put, two requests; a larger one
// is initiated, sent in parts and completed. The listener hears the same either way.
TEST_F(CliOptions, AFileNoLargerThanAPartIsOneHeadAndOnePut) {
    auto small = makeFile("one.bin", 102400, 41);
    auto large = makeFile("two.bin", 102401, 42);
    auto process = run(target({"--part-size", "102400", "--jobs", "1", small, large}), rootEnv());
    ASSERT_EQ(process->wait(kGenerous), 0) << process->errors();
    EXPECT_TRUE(stored("one.bin", small));
    EXPECT_TRUE(stored("two.bin", large));
    EXPECT_EQ(cloud_.requests("HeadObject").size(), 2u);
    EXPECT_EQ(cloud_.requests("PutObject").size(), 1u);
    EXPECT_EQ(cloud_.requests("InitiateMultipartUpload").size(), 1u);
    EXPECT_EQ(cloud_.requests("UploadPart").size(), 2u);
    EXPECT_EQ(cloud_.requests("CompleteMultipartUpload").size(), 1u);
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
    auto again = run(target({"--part-size", "102400", small}), rootEnv());
    ASSERT_EQ(again->wait(kGenerous), 0) << again->errors();
    EXPECT_EQ(cloud_.requests("PutObject").size(), 1u);
    EXPECT_EQ(events(*again, "skipped").size(), 1u);
}

TEST_F(CliOptions, AnEmptyFileBecomesAnEmptyObject) {
    auto empty = makeFile("empty.bin", 0, 30);
    auto process = run(target({empty}), rootEnv());
    ASSERT_EQ(process->wait(kGenerous), 0) << process->errors();
    auto bytes = cloud_.objectBytes(cloud_.options().bucket, "empty.bin");
    ASSERT_TRUE(bytes);
    EXPECT_TRUE(bytes->empty());
    EXPECT_EQ(cloud_.requests("PutObject").size(), 1u);
}

// Empty segments, dot segments and characters a URL gives meaning to are parts of the key.
TEST_F(CliOptions, AKeyIsStoredExactlyAsGiven) {
    auto file = makeFile("x.jpg", 150000, 35);
    std::set<std::string> keys;
    for (std::string key : {"photos//2024/x.jpg", "x/a/../b", "dir/./ü ?#%25+.bin/", "a/b/.."}) {
        auto process = run(target({"--key", key, file}), rootEnv());
        ASSERT_EQ(process->wait(kGenerous), 0) << key << ": " << process->errors();
        EXPECT_EQ(events(*process, "success").at(0)["object"], key);
        EXPECT_TRUE(stored(key, file)) << key;
        keys.insert(key);
    }
    std::set<std::string> storedKeys;
    for (const auto& object : cloud_.objects()) storedKeys.insert(object.key);
    EXPECT_EQ(storedKeys, keys);
}

TEST_F(CliOptions, AMediaFileWithANamedBucketGoesThereAndNeverToAVideoService) {
    auto clip = makeFile("clip.mp4", 150000, 31);
    auto process = run(target({clip}), rootEnv());
    ASSERT_EQ(process->wait(kGenerous), 0) << process->errors();
    EXPECT_TRUE(stored("clip.mp4", clip));
    for (const auto& request : cloud_.requests()) EXPECT_EQ(request.service, "oss") << request.operation;
    auto both = run(target({"--vod", clip}), rootEnv());
    EXPECT_EQ(both->wait(kGenerous), 2);
    EXPECT_NE(both->errors().find("--vod uploads go where the video service says"), std::string::npos);
}

TEST_F(CliOptions, VodSignatureThreeSignsVideoServiceCallsAcs3AndOneKeepsHmacSha1) {
    auto vod = [&](std::vector<std::string> extra, const std::string& photo) {
        std::vector<std::string> args{"upload",   "--json",          "--vod-endpoint", cloud_.endpoint(),
                                      "--key-id", sts_.AccessKeyId,  "--secret",       sts_.AccessKeySecret,
                                      "--sts-token", sts_.SecurityToken, "--expire",   sts_.Expiration};
        args.insert(args.end(), extra.begin(), extra.end());
        args.push_back(photo);
        return run(args);
    };
    auto acs3 = vod({"--vod-signature", "3"}, makeFile("first.png", 20000, 33));
    ASSERT_EQ(acs3->wait(kGenerous), 0) << acs3->errors();
    auto byDefault = vod({}, makeFile("second.png", 20000, 34));
    ASSERT_EQ(byDefault->wait(kGenerous), 0) << byDefault->errors();

    auto calls = cloud_.requests("CreateUploadImage");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].header("Authorization").value_or("").rfind("ACS3-HMAC-SHA256 ", 0), 0u);
    EXPECT_FALSE(calls[1].header("Authorization"));
    EXPECT_NE(calls[1].query.find("SignatureMethod=HMAC-SHA1"), std::string::npos);
    EXPECT_EQ(cloud_.images().size(), 2u);
    expectNoSecretIn(*acs3, {sts_.AccessKeySecret, sts_.SecurityToken});

    auto other = vod({"--vod-signature", "2"}, makeFile("third.png", 20000, 35));
    EXPECT_EQ(other->wait(kGenerous), 2);
}

TEST_F(CliOptions, ThingsThatAreNotFilesAndConflictingFlagsExitTwo) {
    auto file = makeFile("ok.bin", 1000, 32);
    auto fifo = root_ / "pipe";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    struct Case {
        std::vector<std::string> args;
        std::string message;
    };
    std::vector<Case> cases = {
        {{fifo.string()}, "is a FIFO"},
        {{"/dev/zero"}, "is a device"},
        {{"--key", "a", "--prefix", "b/", file}, "excludes"},
        {{"--quiet", file}, "excludes"},
        {{"--include", "*.bin", file}, "go with -r"},
        {{file, "s3://bucket/key"}, "destinations are written oss://"},
        {{"--key", "other.bin", file, "oss://" + cloud_.options().bucket + "/k"}, "the key is given twice"},
        {{""}, "an empty file name"},
        {{"--dry-run", file, ""}, "an empty file name"},
        {{"-r", ""}, "an empty file name"},
        // Its size reads 0, yet it reads text: stored by its size it would be an empty object.
        {{"/proc/self/status"}, "/proc/self/status: its size reads 0 but it has content"},
    };
    for (const auto& c : cases) {
        auto process = run(target(c.args), rootEnv());
        EXPECT_EQ(process->wait(kGenerous), 2) << c.message;
        EXPECT_NE(process->errors().find(c.message), std::string::npos) << c.message << ": " << process->errors();
        EXPECT_EQ(events(*process, "error").size(), 1u) << c.message;
    }
    auto disagree = run({"upload", "--endpoint", cloud_.endpoint(), "--bucket", "other", file,
                         "oss://" + cloud_.options().bucket + "/k"},
                        rootEnv());
    EXPECT_EQ(disagree->wait(kGenerous), 2);
    EXPECT_NE(disagree->errors().find("disagree"), std::string::npos) << disagree->errors();
    EXPECT_TRUE(cloud_.requests().empty());
}

// With the service down, every retry is shown with its count, limit, cause and wait: the engine's
// retries of the upload and the object-storage client's retries of each request.
TEST_F(CliOptions, EveryRetryIsShownWithItsCountLimitCauseAndWait) {
    auto file = makeFile("down.bin", 300 * 1024, 36);
    auto args = target({"--retries", "3", file});
    cloud_.stop();  // connections are refused from now on
    auto process = run(args, rootEnv());
    EXPECT_EQ(process->wait(kGenerous), 1) << process->errors();
    // The lookup that could not ask is the first; then the object-storage client's own sends of the
    // request, counted in the same sequence, until the file's three are spent.
    std::vector<Value> retries;
    for (const auto& line : process->lines())
        if (auto event = foundation::parseJson(line);
            event && (event->value("event", "") == "retry" || event->value("event", "") == "requestRetry"))
            retries.push_back(*event);
    ASSERT_EQ(retries.size(), 3u) << process->errors();
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
    auto failures = events(*process, "failure");
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0]["code"], "RetryLimit");
}

// An HTTP 500 is sent again by the object-storage client, but the upload does not retry it: it fails.
TEST_F(CliOptions, AnInternalErrorIsShownAsRequestRetriesThenFailsWithoutAnUploadRetry) {
    auto file = makeFile("five.bin", 300 * 1024, 37);
    for (int i = 0; i < 3; ++i) cloud_.addFault(Fault::error("InitiateMultipartUpload", 500, "InternalError"));
    auto process = run(target({"--retries", "3", "--part-size", "102400", file}), rootEnv());
    EXPECT_EQ(process->wait(kGenerous), 1) << process->errors();
    EXPECT_TRUE(events(*process, "retry").empty());
    auto requestRetries = events(*process, "requestRetry");
    ASSERT_EQ(requestRetries.size(), 2u);
    EXPECT_EQ(requestRetries[1]["cause"], "HTTP 500 InternalError");
    auto failures = events(*process, "failure");
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0]["code"], "InternalError");
}

class CliTls : public CliUploadToEmulator {
protected:
    void SetUp() override {
        CliUpload::SetUp();
        emulator::EmulatorOptions options;
        options.https = true;
        startCloud(options);
    }
    std::vector<std::string> args(std::vector<std::string> extra) const {
        extra.insert(extra.begin(), {"--region", cloud_->options().region, "--retries", "3"});
        return uploadArgs(extra);
    }
};

// The emulator's CA is trusted with --ca-file; without it the refused certificate is final: no retry,
// one failure.
TEST_F(CliTls, TheCaFileIsTrustedAndAnUntrustedCertificateFailsAtOnce) {
    auto file = makeFile("tls.bin", 150000, 33);
    auto untrusted = run(args({file}), keys());
    EXPECT_EQ(untrusted->wait(kGenerous), 1) << untrusted->errors();
    EXPECT_TRUE(events(*untrusted, "retry").empty());
    EXPECT_EQ(events(*untrusted, "failure").size(), 1u);
    auto trusted = run(args({"--ca-file", cloud_->caFile(), file}), keys());
    ASSERT_EQ(trusted->wait(kGenerous), 0) << trusted->errors();
    EXPECT_TRUE(cloud_->objectBytes(cloud_->options().bucket, "tls.bin"));
}

}  // namespace
}  // namespace quorvane
