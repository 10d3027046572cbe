// The engine against a cloud that takes only V4 signatures, in another region than the engine's default,
// and whose clock runs ahead: the region comes from the upload auth (or the client's region for a bucket
// named by the host), and one refused request corrects the clock for the whole upload.
#include "VODUpload/src/VodInfo.h"
#include "engine_cloud_support.h"

using namespace quorvane;
using namespace quorvane::test;

namespace {

emulator::EmulatorOptions v4OnlyElsewhere(std::chrono::seconds skew) {
    emulator::EmulatorOptions options;
    options.acceptV1Signatures = false;
    options.region = "cn-hangzhou";
    options.clockSkew = skew;
    return options;
}

// Every object-storage request the cloud answered: V4-signed for the cloud's region.
void expectAllV4(const emulator::CloudEmulator& cloud) {
    std::size_t oss = 0;
    for (const auto& r : cloud.requests()) {
        if (r.service != "oss") continue;
        ++oss;
        auto auth = r.header("Authorization").value_or("");
        EXPECT_EQ(auth.rfind("OSS4-HMAC-SHA256 Credential=", 0), 0u) << r.operation << ": " << auth;
        EXPECT_NE(auth.find("/cn-hangzhou/oss/aliyun_v4_request,"), std::string::npos) << auth;
    }
    EXPECT_GT(oss, 0u);
}

class SkewedV4Cloud : public EngineCloudTest {
protected:
    SkewedV4Cloud() : EngineCloudTest(v4OnlyElsewhere(std::chrono::minutes(20))) {}
};

class V4Cloud : public EngineCloudTest {
protected:
    V4Cloud() : EngineCloudTest(v4OnlyElsewhere(std::chrono::seconds(0))) {}
};

}  // namespace

TEST_F(SkewedV4Cloud, ADirectUploadSucceedsWithExactlyOneRefusedRequest) {
    const auto bytes = randomBytes(3 * 1048576 + 1000, 71);
    ASSERT_TRUE(initSts(client));
    client->setRegion("cn-hangzhou");  // an IP endpoint names no region: the client's is used
    ASSERT_TRUE(addAndStart(makeFile("clip.bin", bytes), "v4/clip.bin"));
    ASSERT_TRUE(listener.waitFor("finish"));
    EXPECT_EQ(listener.count("failure"), 0);
    EXPECT_TRUE(cloud.objectBytes(bucket(), "v4/clip.bin") == bytes);
    expectAllV4(cloud);
    std::size_t skewed = 0;
    for (const auto& r : cloud.requests())
        if (r.service == "oss" && r.errorCode == "RequestTimeTooSkewed") ++skewed;
    EXPECT_EQ(skewed, 1u);
}

TEST_F(V4Cloud, TheVideoServicesUploadAuthNamesTheRegionToSignFor) {
    const auto bytes = randomBytes(1048576 + 77, 72);
    ASSERT_TRUE(client->init(cloud.options().accessKeyId, cloud.options().accessKeySecret, listener.make()));
    auto info = std::make_shared<VodInfo>();
    info->title = "v4";
    ASSERT_EQ(client->region(), "cn-shanghai");
    ASSERT_TRUE(client->addFile(makeFile("clip.mp4", bytes), info));
    ASSERT_TRUE(client->start());
    ASSERT_TRUE(listener.waitFor("finish"));
    EXPECT_EQ(listener.count("failure"), 0);
    ASSERT_EQ(cloud.videos().size(), 1u);
    ASSERT_EQ(cloud.objects().size(), 1u);
    const auto stored = cloud.objects().front();
    EXPECT_TRUE(cloud.objectBytes(stored.bucket, stored.key) == bytes);
    expectAllV4(cloud);

    // Asked for V1, the same upload is refused with the service's code and never retried as network trouble.
    RecordingListener v1;
    auto old = VODUploadClient::create(services());
    old->setRecordDirectoryPath(dir.file("records-v1"));
    old->setStorageSignature(oss::OSSSignatureVersion::V1, "");
    ASSERT_TRUE(old->init(cloud.options().accessKeyId, cloud.options().accessKeySecret, v1.make()));
    ASSERT_TRUE(old->addFile(makeFile("old.mp4", bytes), info));
    ASSERT_TRUE(old->start());
    ASSERT_TRUE(v1.waitFor("failure"));
    EXPECT_EQ(v1.count("retry"), 0);
    EXPECT_EQ(v1.failures().at(0).first, "AccessDenied");
    old->stop();
}
