// V4 signatures against a cloud that refuses V1, as buckets made since September 2025 do: every request
// the client sends, the region it signs for, a clock that is off, and the errors a user gets instead.
#include <httplib.h>

#include <set>

#include "emulator/cloud_emulator.h"
#include "foundation/crypto.h"
#include "oss/oss_region.h"
#include "oss/oss_signer_v4.h"
#include "oss_fixture.h"

namespace oss_test {
namespace {

std::string serviceCode(const Error& error) { return foundation::stringAt(error.userInfo, "Code").value_or(""); }

class V4Cloud : public OssEmulatorTest {
protected:
    V4Cloud() : OssEmulatorTest([] {
        emulator::EmulatorOptions options;
        options.acceptV1Signatures = false;
        options.region = "cn-hangzhou";
        return options;
    }()) {}

    // Retries go at once.
    std::unique_ptr<OSSClient> client(OSSClientConfiguration conf, std::shared_ptr<OSSCredentialProvider> provider = {}) {
        conf.retryScheduler = [](auto, auto resume) { resume(); };
        return makeClient(std::move(conf), std::move(provider));
    }
    static OSSClientConfiguration inRegion(std::string region) {
        OSSClientConfiguration conf;
        conf.region = std::move(region);
        return conf;
    }

    std::shared_ptr<OSSTask<OSSPutObjectResult>> put(OSSClient& c, const std::string& key, const std::string& bytes) {
        return waited(c.putObject(putOf(key, bytes)));
    }
};

// Keys whose encoding differs between the URL, the V1 resource and the V4 canonical URI.
const std::vector<std::string> kAwkwardKeys = {"plain.bin", "with space/and+plus.txt", "100%/done~.mp4",
                                               "视频/封面 1.jpg", "a=b&c?d#e.bin"};

TEST_F(V4Cloud, EveryOperationOfAResumableUploadIsSignedV4AndAccepted) {
    auto sts = cloud.issueSts();
    auto c = client(inRegion("cn-hangzhou"), stsKeys(sts));
    ASSERT_EQ(c->signatureVersion(), OSSSignatureVersion::V4);

    std::string bytes;
    auto path = makeFile("clip.mp4", 600 * 1024 + 13, &bytes, 7);
    for (const auto& key : kAwkwardKeys) {
        auto task = waited(c->resumableUpload(resumableOf(path, key, 256 * 1024)));
        ASSERT_FALSE(task->error()) << key << ": " << task->error()->toString();
        EXPECT_EQ(cloud.objectBytes(bucket(), key), bytes) << key;
        auto headTask = waited(c->headObject(on<OSSHeadObjectRequest>(key)));
        ASSERT_FALSE(headTask->error()) << key;
        EXPECT_EQ(headTask->result()->contentLength, static_cast<std::int64_t>(bytes.size()));
    }
    // Parts sent one by one, listed in pages, and the upload aborted.
    auto id = initiate(*c, "to abort.bin");
    ASSERT_FALSE(id.empty());
    for (int n = 1; n <= 3; ++n) {
        auto part = on<OSSUploadPartRequest>("to abort.bin");
        part->uploadId = id;
        part->partNumber = n;
        part->uploadPartData = std::string(100 * 1024, static_cast<char>('a' + n));
        auto done = waited(c->uploadPart(part));
        ASSERT_FALSE(done->error()) << done->error()->toString();
        EXPECT_FALSE(done->result()->eTag.empty());
    }
    auto list = on<OSSListPartsRequest>("to abort.bin");
    list->uploadId = id;
    list->maxParts = 2;
    const auto listedBefore = cloud.requests("ListParts").size();
    auto listed = waited(c->listParts(list));
    ASSERT_FALSE(listed->error()) << listed->error()->toString();
    ASSERT_EQ(listed->result()->parts.size(), 3u);
    EXPECT_EQ(listed->result()->parts[2].partNum, 3);
    EXPECT_EQ(cloud.requests("ListParts").size(), listedBefore + 2);  // two pages
    auto abort = on<OSSAbortMultipartUploadRequest>("to abort.bin");
    abort->uploadId = id;
    ASSERT_FALSE(waited(c->abortMultipartUpload(abort))->error());

    std::set<std::string> operations;
    for (const auto& r : cloud.requests()) {
        if (r.service != "oss") continue;
        operations.insert(r.operation);
        EXPECT_LT(r.status, 300) << r.operation << " " << r.path << " " << r.errorCode;
        EXPECT_EQ(r.header("Authorization").value_or("").rfind("OSS4-HMAC-SHA256 Credential=" + sts.AccessKeyId + "/", 0), 0u);
        EXPECT_EQ(r.header("x-oss-content-sha256"), "UNSIGNED-PAYLOAD");
        EXPECT_EQ(r.header("x-oss-security-token"), sts.SecurityToken);
        EXPECT_EQ(r.header("x-oss-date").value_or("").size(), 16u);
    }
    EXPECT_EQ(operations, (std::set<std::string>{"InitiateMultipartUpload", "UploadPart", "CompleteMultipartUpload",
                                                 "HeadObject", "ListParts", "AbortMultipartUpload"}));
    auto gone = waited(c->listParts(list));
    EXPECT_EQ(codeOf(gone), -404);
    EXPECT_EQ(gone->error()->userInfo["Code"], "NoSuchUpload");
}

TEST_F(V4Cloud, RegionComesFromTheConfigurationElseTheServicesOwnEndpointNamesAndSignerBlocksStayV1) {
    EXPECT_EQ(regionFromEndpoint("oss-cn-hangzhou.aliyuncs.com"), "cn-hangzhou");
    EXPECT_EQ(regionFromEndpoint("https://oss-ap-southeast-1-internal.aliyuncs.com:443/"), "ap-southeast-1");
    EXPECT_EQ(regionFromEndpoint("http://my-bucket.OSS-CN-BEIJING.aliyuncs.com"), "cn-beijing");
    for (const char* none : {"127.0.0.1:9000", "oss-accelerate.aliyuncs.com", "cdn.example.com",
                             "oss-cn-hangzhou.aliyuncs.com.evil.example", "oss-.aliyuncs.com", "aliyuncs.com"})
        EXPECT_EQ(regionFromEndpoint(none), std::nullopt) << none;
    EXPECT_TRUE(isValidRegion("cn-hangzhou"));
    for (const char* bad : {"", "CN-hangzhou", "cn_hangzhou", "cn hangzhou", "cn-hangzhou\n"})
        EXPECT_FALSE(isValidRegion(bad)) << bad;

    // Without a region: V1 by default (refused here), and V4 asked for fails before anything is sent.
    auto automatic = client({});
    EXPECT_EQ(automatic->signatureVersion(), OSSSignatureVersion::V1);
    auto refused = put(*automatic, "v1.txt", "x");
    EXPECT_EQ(codeOf(refused), -403);
    EXPECT_EQ(serviceCode(*refused->error()), "AccessDenied");
    EXPECT_EQ(foundation::stringAt(refused->error()->userInfo, "EC"), "0002-00000080");

    const auto sentBefore = cloud.requests().size();
    OSSClientConfiguration v4;
    v4.signatureVersion = OSSSignatureVersion::V4;
    auto noRegion = put(*client(v4), "no-region.txt", "x");
    EXPECT_EQ(codeOf(noRegion), OSSClientErrorCodeInvalidArgument);
    EXPECT_NE(noRegion->error()->description.find("region"), std::string::npos) << noRegion->error()->description;
    auto badRegion = put(*client(inRegion("Hangzhou!")), "bad-region.txt", "x");
    ASSERT_TRUE(badRegion->error());
    EXPECT_NE(badRegion->error()->description.find("Hangzhou!"), std::string::npos);
    // A signer block stays V1, even with a region, and cannot be forced into V4.
    EXPECT_EQ(client(inRegion("cn-hangzhou"), signerBlock())->signatureVersion(), OSSSignatureVersion::V1);
    auto forced = inRegion("cn-hangzhou");
    forced.signatureVersion = OSSSignatureVersion::V4;
    EXPECT_EQ(codeOf(put(*client(forced, signerBlock()), "block.txt", "x")), OSSClientErrorCodeSignFailed);
    EXPECT_EQ(cloud.requests().size(), sentBefore);

    // A wrong region is the service's error, answered once: no retry loop.
    auto wrong = put(*client(inRegion("cn-beijing")), "wrong-region.txt", "x");
    EXPECT_EQ(codeOf(wrong), -400);
    EXPECT_EQ(serviceCode(*wrong->error()), "InvalidArgument");
    EXPECT_EQ(cloud.requests().size(), sentBefore + 1);
}

TEST_F(V4Cloud, AWrongSignatureIsAnsweredWithTheCanonicalRequestTheServiceComputed) {
    auto wrongSecret = std::make_shared<OSSPlainTextAKSKPairCredentialProvider>(cloud.options().accessKeyId, "nope");
    auto task = put(*client(inRegion("cn-hangzhou"), wrongSecret), "dir/a b.txt", "x");
    ASSERT_TRUE(task->error());
    const auto error = *task->error();
    const auto& info = error.userInfo;
    EXPECT_EQ(serviceCode(error), "SignatureDoesNotMatch");
    auto canonical = foundation::stringAt(info, "CanonicalRequest").value_or("");
    EXPECT_EQ(canonical.rfind("PUT\n/" + bucket() + "/dir/a%20b.txt\n\n", 0), 0u) << canonical;
    EXPECT_NE(canonical.find("\nx-oss-content-sha256:UNSIGNED-PAYLOAD\n"), std::string::npos);
    auto toSign = foundation::stringAt(info, "StringToSign").value_or("");
    EXPECT_EQ(toSign.substr(toSign.rfind('\n') + 1), foundation::sha256Hex(canonical));
    EXPECT_EQ(toSign.rfind("OSS4-HMAC-SHA256\n", 0), 0u);
}

// Requests written by hand, to reach the answers a correct client never provokes.
TEST_F(V4Cloud, MalformedV4RequestsGetTheServicesCodes) {
    httplib::Client raw("127.0.0.1", cloud.port());
    const auto now = std::chrono::system_clock::now();
    const auto dateTime = v4DateTime(now);
    const std::string path = "/" + bucket() + "/raw.txt";
    auto signedWith = [&](const std::string& scopeDate, const std::string& payload) {
        foundation::Headers headers = {{"x-oss-date", dateTime}};
        if (!payload.empty()) headers.emplace_back("x-oss-content-sha256", payload);
        auto canonical = v4CanonicalRequest("GET", bucket(), "raw.txt", {}, headers, {});
        auto toSign = std::string("OSS4-HMAC-SHA256\n") + dateTime + "\n" + v4Scope(scopeDate, "cn-hangzhou") + "\n" +
                      foundation::sha256Hex(canonical);
        httplib::Headers h(headers.begin(), headers.end());
        h.emplace("Authorization", "OSS4-HMAC-SHA256 Credential=" + cloud.options().accessKeyId + "/" +
                                       v4Scope(scopeDate, "cn-hangzhou") + ",Signature=" +
                                       v4Signature(cloud.options().accessKeySecret, scopeDate, "cn-hangzhou", toSign));
        return h;
    };
    auto codeOfAnswer = [&](const httplib::Headers& h) {
        auto answer = raw.Get(path, h);
        if (!answer) return std::string("no answer");
        auto element = [&](const std::string& name) {
            auto open = answer->body.find("<" + name + ">");
            if (open == std::string::npos) return std::string();
            open += name.size() + 2;
            return answer->body.substr(open, answer->body.find("</" + name + ">", open) - open);
        };
        return std::to_string(answer->status) + " " + element("Code") + " " + element("EC");
    };
    cloud.putObject(bucket(), "raw.txt", "raw");
    const auto today = dateTime.substr(0, 8);
    EXPECT_EQ(codeOfAnswer(signedWith(today, "UNSIGNED-PAYLOAD")), "200  ");
    EXPECT_EQ(codeOfAnswer(signedWith(today, "")), "400 InvalidArgument 0002-00000214");
    EXPECT_EQ(codeOfAnswer(signedWith(today, foundation::sha256Hex(""))), "400 InvalidArgument 0002-00000214");
    EXPECT_EQ(codeOfAnswer(signedWith("20200101", "UNSIGNED-PAYLOAD")), "400 InvalidArgument ");
    auto noCredential = signedWith(today, "UNSIGNED-PAYLOAD");
    noCredential.erase("Authorization");
    noCredential.emplace("Authorization", "OSS4-HMAC-SHA256 Signature=" + std::string(64, 'a'));
    EXPECT_EQ(codeOfAnswer(noCredential), "400 InvalidArgument 0002-00000202");
    auto badSuffix = signedWith(today, "UNSIGNED-PAYLOAD");
    auto auth = badSuffix.find("Authorization")->second;
    badSuffix.erase("Authorization");
    badSuffix.emplace("Authorization", auth.replace(auth.find("aliyun_v4_request"), 17, "abc"));
    EXPECT_EQ(codeOfAnswer(badSuffix), "400 InvalidArgument 0002-00000213");
}

// The cloud's clock 20 minutes ahead, or three hours behind: one refused request teaches the client,
// which then signs with the service's time; V1 and V4 alike, and also for HEAD, whose refusal has no body.
TEST(OssClockSkew, OneRefusedRequestCorrectsTheClockForEveryLaterOne) {
    for (const auto& [v4, skew] : {std::pair{false, std::chrono::seconds(1200)}, std::pair{true, std::chrono::seconds(-3 * 3600)}}) {
        SCOPED_TRACE(v4 ? "V4" : "V1");
        emulator::EmulatorOptions options;
        options.clockSkew = skew;
        emulator::CloudEmulator cloud(options);
        ASSERT_TRUE(cloud.start());
        auto http = std::make_shared<foundation::HttpClient>();
        OSSClientConfiguration conf;
        conf.httpClient = http;
        if (v4) conf.region = options.region;
        auto keys = std::make_shared<OSSPlainTextAKSKPairCredentialProvider>(options.accessKeyId,
                                                                            options.accessKeySecret);
        OSSClient first(cloud.endpoint(), keys, conf);
        auto request = std::make_shared<OSSPutObjectRequest>();
        request->bucketName = options.bucket;
        request->objectKey = "skewed.txt";
        request->uploadingData = std::string(1000, 's');
        for (std::size_t puts = 2; puts <= 3; ++puts) {  // the first put is refused once, the second is not
            auto task = first.putObject(request);
            ASSERT_TRUE(task->waitFor(kWait));
            ASSERT_FALSE(task->error()) << task->error()->toString();
            ASSERT_EQ(cloud.requests("PutObject").size(), puts);
        }
        EXPECT_EQ(cloud.requests("PutObject")[0].errorCode, "RequestTimeTooSkewed");
        EXPECT_NEAR(std::chrono::duration<double>(first.clockOffset()).count(), static_cast<double>(skew.count()), 5);

        OSSClient second(cloud.endpoint(), keys, conf);
        auto head = std::make_shared<OSSHeadObjectRequest>();
        head->bucketName = options.bucket;
        head->objectKey = "skewed.txt";
        auto headTask = second.headObject(head);
        ASSERT_TRUE(headTask->waitFor(kWait));
        ASSERT_FALSE(headTask->error()) << headTask->error()->toString();
        EXPECT_EQ(cloud.requests("HeadObject").size(), 2u);
    }
}

}  // namespace
}  // namespace oss_test
