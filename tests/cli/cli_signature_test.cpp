// `quorvane upload --oss` against a cloud that takes only V4 signatures, in a region of its own and with
// its clock ahead: the region from the flag or the profile, what is refused before anything is sent, and
// what the service refuses.
#include <gtest/gtest.h>

#include <fstream>

#include "cli/cli_fixture.h"

namespace quorvane {
namespace {

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

TEST_F(CliSignature, UploadsSignV4ForTheRegionOfTheFlagOrTheProfile) {
    auto big = makeFile("big.bin", 700 * 1024, 31);
    auto small = makeFile("small.bin", 5000, 32);
    auto byFlag = run(args({"--region", "cn-hangzhou", big, small}), keys());
    ASSERT_EQ(byFlag->wait(kGenerous), 0) << byFlag->errors();
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
    auto byProfile = run(args({"--profile", "work", other}));
    ASSERT_EQ(byProfile->wait(kGenerous), 0) << byProfile->errors();
    EXPECT_EQ(cloud_->objectBytes(cloud_->options().bucket, "profile.bin"), contents_[other]);
}

TEST_F(CliSignature, NoUsableRegionIsAUsageErrorAndRefusalsAreTheServices) {
    auto file = makeFile("f.bin", 1000, 34);
    struct Case {
        std::vector<std::string> extra;
        std::string message;
    };
    const std::vector<Case> usage = {
        {{file}, "--region"},
        {{"--region", "CN_Hangzhou", file}, "bad --region 'CN_Hangzhou'"},
        {{"--signature-version", "2", "--region", "cn-hangzhou", file}, "--signature-version"},
    };
    for (const auto& c : usage) {
        auto process = run(args(c.extra), keys());
        EXPECT_EQ(process->wait(kGenerous), 2) << c.message;
        EXPECT_NE(process->errors().find(c.message), std::string::npos) << c.message << ": " << process->errors();
    }
    EXPECT_TRUE(cloud_->requests().empty());

    // V1 to a bucket that refuses it, and V4 for the wrong region: the service's codes, one file failed.
    for (const auto& extra : {std::vector<std::string>{"--signature-version", "1", file},
                              std::vector<std::string>{"--region", "cn-beijing", file}}) {
        auto process = run(args(extra), keys());
        EXPECT_EQ(process->wait(kGenerous), 1) << process->errors();
        auto failures = events(*process, "failure");
        ASSERT_EQ(failures.size(), 1u) << process->errors();
        const auto text = foundation::toJsonText(failures[0]);
        EXPECT_TRUE(text.find("AccessDenied") != std::string::npos || text.find("InvalidArgument") != std::string::npos)
            << text;
    }
    EXPECT_FALSE(cloud_->object(cloud_->options().bucket, "f.bin"));
}

}  // namespace
}  // namespace quorvane
