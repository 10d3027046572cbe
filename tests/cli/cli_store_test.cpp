// The object-storage commands beside `upload`, end to end: the built program against an emulator this
// test runs (get, verify, presign, config and where credentials come from), checking stored and
// downloaded bytes.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "cli/cli_fixture.h"
#include "foundation/crc64.h"
#include "oss/oss_client.h"

namespace quorvane {
namespace {

class CliStore : public CliUploadToService {
protected:
    // Connection and STS credentials of the test's emulator.
    std::vector<std::string> with(std::vector<std::string> args) {
        args.insert(args.end(), {"--endpoint", cloud_.endpoint(), "--region", cloud_.options().region, "--key-id",
                                 sts_.AccessKeyId, "--secret", sts_.AccessKeySecret, "--sts-token", sts_.SecurityToken});
        return args;
    }
    // Stores `name` (a file made with makeFile) under `key` with the program's own upload.
    void store(const std::string& file, const std::string& key) {
        ran(0, with({"upload", "--json", "--oss", file, "oss://" + bucket() + "/" + key}));
    }
    std::string bucket() const { return cloud_.options().bucket; }
    static std::string readFile(const fs::path& path) {
        std::ifstream in(path, std::ios::binary);
        std::stringstream bytes;
        bytes << in.rdbuf();
        return bytes.str();
    }
    // A partial download of `key` as an earlier run leaves it: `bytes` and the record naming the object.
    void partial(const fs::path& dest, const std::string& key, const std::string& bytes, std::size_t size) {
        std::ofstream(dest.string() + ".quorvane-part", std::ios::binary) << bytes;
        auto object = cloud_.object(bucket(), key);
        ASSERT_TRUE(object);
        std::ofstream(dest.string() + ".quorvane-part.json")
            << Value{{"bucket", bucket()}, {"key", key}, {"eTag", object->etag}, {"size", size}}.dump();
    }
    // Runs curl; its exit status and the HTTP status it printed.
    std::pair<int, std::string> curl(const std::string& arguments) {
        auto out = root_ / "curl.out";
        int status = std::system(("curl -s -o " + (root_ / "curl.body").string() + " -w '%{http_code}' " + arguments +
                                  " > " + out.string()).c_str());
        return {status, readFile(out)};
    }
};

TEST_F(CliStore, GetDownloadsTheExactBytesContinuesAPartialFileAndRefusesABadCrc) {
    const std::size_t size = 5 * 65536 + 123;
    auto file = makeFile("big.bin", size, 11);
    store(file, "data/big.bin");
    const auto& bytes = contents_[file];

    // Whole, in ranges of 64 KiB: six range requests, then the file takes its name.
    auto dest = root_ / "down.bin";
    auto whole = ran(0, with({"get", "--json", "--range-size", "65536", "oss://" + bucket() + "/data/big.bin", dest.string()}));
    EXPECT_TRUE(readFile(dest) == bytes);
    EXPECT_EQ(only(*whole, "success")["crc64"], std::to_string(foundation::Crc64::compute(bytes)));
    EXPECT_EQ(events(*whole, "progress").back()["downloaded"], size);
    EXPECT_FALSE(fs::exists(root_ / "down.bin.quorvane-part"));

    // A partial file of an earlier run (its record names this very object): only the rest is asked for.
    auto resumed = root_ / "resumed.bin";
    const std::size_t already = 2 * 65536 + 17;
    partial(resumed, "data/big.bin", bytes.substr(0, already), size);
    const auto getsBefore = cloud_.requests("GetObject").size();
    auto second = ran(0, with({"get", "--json", "--range-size", "65536", "oss://" + bucket() + "/data/big.bin", resumed.string()}));
    EXPECT_TRUE(readFile(resumed) == bytes);
    EXPECT_EQ(only(*second, "resuming")["downloaded"], already);
    EXPECT_EQ(cloud_.requests("GetObject").size() - getsBefore, 4u);  // (size - already) / 64 KiB, rounded up

    // A partial file whose bytes are not the object's: the CRC-64 of the whole catches it.
    auto spoiled = root_ / "spoiled.bin";
    partial(spoiled, "data/big.bin", std::string(already, 'x'), size);
    auto third = ran(1, with({"get", "--json", "oss://" + bucket() + "/data/big.bin", spoiled.string()}));
    EXPECT_EQ(only(*third, "failure")["code"], "InvalidCRC");
    EXPECT_FALSE(fs::exists(spoiled));
    EXPECT_FALSE(fs::exists(root_ / "spoiled.bin.quorvane-part"));

    // Missing objects fail with the service's code; bad arguments are usage errors before anything is sent.
    ran(1, with({"get", "--json", "oss://" + bucket() + "/no/such", (root_ / "x").string()}));
    EXPECT_FALSE(fs::exists(root_ / "x"));
    for (const auto& args :
         std::vector<std::vector<std::string>>{{"get", "oss://" + bucket() + "/dir/"}, {"get", "s3://b/k"}, {"get"}})
        ran(2, with(args));
}

TEST_F(CliStore, LsListsSizesCrcsAndPrefixesAndRmDeletesWhatItListed) {
    auto a = makeFile("a.bin", 1000, 21);
    auto b = makeFile("b.bin", 2000, 22);
    store(a, "photos/2024/a.bin");
    store(b, "photos/2024/deep/b.bin");
    store(a, "photos/top.bin");
    store(b, "other/keep.bin");

    // One level: the object at the top and the "directory" below.
    auto level = ran(0, with({"ls", "--json", "oss://" + bucket() + "/photos/"}));
    auto objects = events(*level, "object");
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(objects[0]["key"], "photos/top.bin");
    EXPECT_EQ(objects[0]["size"], 1000);
    EXPECT_EQ(objects[0]["crc64"], std::to_string(foundation::Crc64::compute(contents_[a])));
    EXPECT_EQ(only(*level, "prefix")["prefix"], "photos/2024/");

    // -r: every key below, in pages of any size.
    auto all = ran(0, with({"ls", "-r", "--json", "oss://" + bucket() + "/photos/"}));
    std::set<std::string> keys;
    for (const auto& event : events(*all, "object")) keys.insert(event["key"]);
    EXPECT_EQ(keys, (std::set<std::string>{"photos/2024/a.bin", "photos/2024/deep/b.bin", "photos/top.bin"}));
    EXPECT_EQ(only(*all, "summary")["bytes"], 4000);
    auto text = ran(0, with({"ls", "-r", "oss://" + bucket() + "/photos/2024/deep/"}));
    ASSERT_EQ(text->lines().size(), 2u);  // the object, then the summary
    EXPECT_NE(text->lines()[0].find(std::to_string(foundation::Crc64::compute(contents_[b]))), std::string::npos);

    // A dry run deletes nothing; -r then deletes exactly the prefix's objects, and a key ending in "/"
    // without -r is a usage error.
    auto dry = ran(0, with({"rm", "-r", "--dry-run", "--json", "oss://" + bucket() + "/photos/2024/"}));
    EXPECT_EQ(events(*dry, "planned").size(), 2u);
    EXPECT_TRUE(cloud_.object(bucket(), "photos/2024/a.bin"));
    ran(2, with({"rm", "oss://" + bucket() + "/photos/"}));
    auto rm = ran(0, with({"rm", "-r", "--json", "oss://" + bucket() + "/photos/2024/"}));
    EXPECT_EQ(events(*rm, "deleted").size(), 2u);
    EXPECT_FALSE(cloud_.object(bucket(), "photos/2024/a.bin"));
    EXPECT_FALSE(cloud_.object(bucket(), "photos/2024/deep/b.bin"));
    EXPECT_TRUE(cloud_.object(bucket(), "photos/top.bin"));
    ran(0, with({"rm", "--json", "oss://" + bucket() + "/photos/top.bin", "oss://" + bucket() + "/other/keep.bin"}));
    EXPECT_TRUE(cloud_.objects().empty());

    // A refused listing is exit 1 with the service's code.
    auto refused = ran(1, with({"ls", "--json", "oss://no-such-bucket/"}));
    EXPECT_EQ(only(*refused, "failure")["code"], "NoSuchBucket");
}

TEST_F(CliStore, UploadsListsUnfinishedUploadsAndAbortsByPrefixOrId) {
    // Uploads begun and never completed, as an interrupted run leaves them.
    oss::OSSClientConfiguration config;
    config.region = cloud_.options().region;
    oss::OSSClient client(cloud_.endpoint(), std::make_shared<oss::OSSFederationCredentialProvider>([this] {
                              auto token = std::make_shared<oss::OSSFederationToken>();
                              token->tAccessKey = sts_.AccessKeyId;
                              token->tSecretKey = sts_.AccessKeySecret;
                              token->tToken = sts_.SecurityToken;
                              return token;
                          }),
                          config);
    std::vector<std::string> ids;
    for (const char* key : {"big/one.iso", "big/two.iso", "small/three.bin"}) {
        auto request = std::make_shared<oss::OSSInitMultipartUploadRequest>();
        request->bucketName = bucket();
        request->objectKey = key;
        auto task = client.multipartUploadInit(request);
        task->waitUntilFinished();
        ASSERT_TRUE(task->result()) << task->error()->toString();
        ids.push_back(task->result()->uploadId);
    }
    auto listed = ran(0, with({"uploads", "--json", "oss://" + bucket() + "/"}));
    EXPECT_EQ(events(*listed, "upload").size(), 3u);

    auto one = ran(0, with({"uploads", "--json", "--abort", "--id", ids[2], "oss://" + bucket() + "/"}));
    EXPECT_EQ(only(*one, "aborted")["key"], "small/three.bin");
    auto prefix = ran(0, with({"uploads", "--json", "--abort", "oss://" + bucket() + "/big/"}));
    EXPECT_EQ(events(*prefix, "aborted").size(), 2u);
    for (const auto& upload : cloud_.uploads()) EXPECT_NE(upload.state, emulator::UploadState::Open) << upload.key;
    ran(1, with({"uploads", "--abort", "--id", ids[0], "oss://" + bucket() + "/"}));
    ran(2, with({"uploads", "--id", ids[0], "oss://" + bucket() + "/"}));
}

TEST_F(CliStore, VerifyComparesSizeAndCrcAndExitsOneOnAnyDifference) {
    auto same = makeFile("dir/same.bin", 70000, 1);
    auto changed = makeFile("dir/changed.bin", 70000, 2);
    auto absent = makeFile("dir/absent.bin", 500, 3);
    store(same, "v/same.bin");
    store(changed, "v/changed.bin");
    makeFile("dir/changed.bin", 70000, 4);  // same size, other bytes

    auto all = ran(1, with({"verify", "--json", same, changed, absent, "oss://" + bucket() + "/v/"}));
    std::map<std::string, Value> byObject;
    for (const auto& event : events(*all, "verified")) byObject[event["object"]] = event;
    ASSERT_EQ(byObject.size(), 3u);
    EXPECT_TRUE(byObject["v/same.bin"]["ok"].get<bool>());
    EXPECT_FALSE(byObject["v/changed.bin"]["ok"].get<bool>());
    EXPECT_EQ(byObject["v/changed.bin"]["reason"], "the CRC-64 differs");
    EXPECT_FALSE(byObject["v/absent.bin"]["ok"].get<bool>());
    EXPECT_EQ(byObject["v/absent.bin"]["reason"], "not stored");

    ran(0, with({"verify", same, "oss://" + bucket() + "/v/same.bin"}));
    // With -r, keys are the paths below the directory, as `upload -r` gives them.
    auto tree = ran(0, with({"verify", "-r", "--json", "--exclude", "absent.bin", "--exclude", "changed.bin",
                             (root_ / "dir").string(), "oss://" + bucket() + "/v/"}));
    EXPECT_EQ(events(*tree, "verified").size(), 1u);
    ran(2, with({"verify", same}));
}

TEST_F(CliStore, PresignedUrlsLetCurlGetAndPutUntilTheyExpire) {
    auto file = makeFile("shared.bin", 4000, 5);
    store(file, "share/shared.bin");
    auto presign = [&](std::vector<std::string> extra) {
        std::vector<std::string> args{"presign", "--json", "oss://" + bucket() + "/share/shared.bin"};
        args.insert(args.end(), extra.begin(), extra.end());
        return only(*ran(0, with(args)), "presigned").value("url", "");
    };
    auto url = presign({"--expires", "15m"});
    ASSERT_NE(url.find("x-oss-signature="), std::string::npos) << url;
    EXPECT_EQ(url.find(sts_.AccessKeySecret), std::string::npos);
    EXPECT_EQ(curl("'" + url + "'"), std::make_pair(0, std::string("200")));
    EXPECT_TRUE(readFile(root_ / "curl.body") == contents_[file]);

    // The signature covers the method and the key: another object, or a PUT with a GET URL, is refused.
    auto other = url;
    other.replace(other.find("shared.bin"), 10, "sharex.bin");
    EXPECT_EQ(curl("'" + other + "'").second, "403");
    auto upload = makeFile("upload.bin", 3000, 6);
    EXPECT_EQ(curl("-T " + upload + " '" + url + "'").second, "403");

    auto putUrl = presign({"--put", "--expires", "1h"});
    EXPECT_EQ(curl("-T " + upload + " '" + putUrl + "'").second, "200");
    EXPECT_TRUE(cloud_.objectBytes(bucket(), "share/shared.bin") == contents_[upload]);

    // A URL that has lived its time is refused; later is only more expired, however loaded the machine.
    auto brief = presign({"--expires", "1"});
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    EXPECT_EQ(curl("'" + brief + "'").second, "403");
    for (const char* expires : {"8d", "0", "1y", "-5"})
        ran(2, with({"presign", "oss://" + bucket() + "/share/shared.bin", "--expires", expires}));
}

TEST_F(CliStore, ConfigWritesAPrivateProfileThatAnExplicitProfileUsesOverTheEnvironment) {
    auto credentials = root_ / "config" / "quorvane" / "credentials";
    fs::create_directories(credentials.parent_path());
    std::ofstream(credentials) << "[other]\naccess_key_id = keep-me\naccess_key_secret = keep-me-too\n";
    auto written = ran(0, {"config", "--json", "--profile", "emu", "--endpoint", cloud_.endpoint(), "--region",
                           cloud_.options().region, "--bucket", bucket(), "--key-id", sts_.AccessKeyId, "--secret",
                           sts_.AccessKeySecret, "--sts-token", sts_.SecurityToken});
    struct stat info {};
    ASSERT_EQ(::stat(credentials.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    auto text = readFile(credentials);
    EXPECT_NE(text.find("keep-me-too"), std::string::npos);
    EXPECT_NE(text.find("[emu]"), std::string::npos);
    for (const auto& line : written->lines()) EXPECT_EQ(line.find(sts_.AccessKeySecret), std::string::npos);

    auto file = makeFile("p.bin", 3000, 7);
    store(file, "p.bin");
    // Keys in the environment that this cloud does not know, and an endpoint nobody listens on: the
    // profile named on the command line wins for its keys and its endpoint alike.
    std::vector<std::pair<std::string, std::string>> foreign{{"OSS_ACCESS_KEY_ID", "LTAIforeign"},
                                                             {"OSS_ACCESS_KEY_SECRET", "foreign-secret-0123"},
                                                             {"OSS_ENDPOINT", "http://127.0.0.1:9"},
                                                             {"OSS_REGION", cloud_.options().region}};
    ran(0, {"get", "--json", "--profile", "emu", "oss://" + bucket() + "/p.bin", (root_ / "p.out").string()}, foreign);
    EXPECT_TRUE(readFile(root_ / "p.out") == contents_[file]);
    // Without --profile the environment's keys are used, at the environment's endpoint.
    ran(1, {"get", "--json", "oss://" + bucket() + "/p.bin", (root_ / "q.out").string()}, foreign);
    // And `upload` with keys only in the environment goes to their service, not to the local cloud.
    std::vector<std::pair<std::string, std::string>> exported{{"OSS_ACCESS_KEY_ID", sts_.AccessKeyId},
                                                              {"OSS_ACCESS_KEY_SECRET", sts_.AccessKeySecret},
                                                              {"OSS_SESSION_TOKEN", sts_.SecurityToken},
                                                              {"OSS_ENDPOINT", cloud_.endpoint()},
                                                              {"OSS_REGION", cloud_.options().region}};
    ran(0, {"upload", "--json", file, "oss://" + bucket() + "/from-env.bin"}, exported);
    EXPECT_TRUE(cloud_.objectBytes(bucket(), "from-env.bin") == contents_[file]);
    // A dry run needs no keys at all.
    auto dry = ran(0, {"upload", "--json", "--dry-run", file, "oss://" + bucket() + "/", "--endpoint", cloud_.endpoint()});
    EXPECT_EQ(events(*dry, "planned").size(), 1u);
}

// Standard input of unknown length: parts of --part-size as they come, or one PutObject when it fits one.
TEST_F(CliStore, StandardInputIsStreamedInPartsAndStoredByteForByte) {
    auto big = makeFile("piped.bin", 3 * kPart + 1000, 31);
    auto small = makeFile("small.bin", 1000, 32);
    auto pipe = [&](const std::string& file, const std::string& key) {
        std::string command = "cat '" + file + "' | '" QUORVANE_CLI_PATH "' upload --json --part-size " +
                              std::to_string(kPart) + " - 'oss://" + bucket() + "/" + key + "'";
        for (const auto& option : with({})) command += " '" + option + "'";
        auto process = std::make_unique<CliProcess>(
            std::vector<std::string>{"/bin/sh", "-c", command},
            std::vector<std::pair<std::string, std::string>>{{"XDG_CACHE_HOME", (root_ / "cache").string()},
                                                             {"XDG_CONFIG_HOME", (root_ / "config").string()},
                                                             {"QUORVANE_LOG_SERVICE_ENDPOINT", ""}});
        EXPECT_EQ(process->wait(kGenerous), 0) << process->errors();
        return process;
    };
    auto streamed = pipe(big, "stream/big.bin");
    EXPECT_TRUE(cloud_.objectBytes(bucket(), "stream/big.bin") == contents_[big]);
    EXPECT_EQ(cloud_.requests("UploadPart").size(), 4u);
    EXPECT_EQ(only(*streamed, "success")["bytes"], 3 * kPart + 1000);

    const auto putsBefore = cloud_.requests("PutObject").size();
    pipe(small, "stream/small.bin");
    EXPECT_TRUE(cloud_.objectBytes(bucket(), "stream/small.bin") == contents_[small]);
    EXPECT_EQ(cloud_.requests("PutObject").size(), putsBefore + 1);

    // Standard input has no name of its own, and goes alone.
    ran(2, with({"upload", "-", "oss://" + bucket() + "/dir/"}));
    ran(2, with({"upload", "-", small, "oss://" + bucket() + "/dir/"}));
}

}  // namespace
}  // namespace quorvane
