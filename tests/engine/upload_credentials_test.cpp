#include <gtest/gtest.h>

#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VODUploadAuthParser.h"
#include "engine_test_support.h"
#include "foundation/crypto.h"
#include "foundation/log.h"
#include "foundation/user_defaults.h"
#include "oss/oss_log.h"

using namespace quorvane;
using foundation::base64Encode;

namespace {

std::string encoded(const Value& v) { return base64Encode(v.dump()); }

const Value kAuth = {{"AccessKeyId", "STS.id"},           {"AccessKeySecret", "sts-secret"},
                     {"SecurityToken", "token-1"},        {"Expiration", "3600"},
                     {"ExpireUTCTime", "2030-01-01T00:00:00Z"}, {"Region", "cn-beijing"}};

std::string debugLine(const std::string& message) {
    return std::string(VODUploadEngine::kLogSource) + " [Debug]: " + message;
}

// Turns the object-storage log switch on for one test and captures what the engine writes.
struct UploadAuthClient : ::testing::Test {
    UploadAuthClient() { oss::OSSLog::enableLog(); }
    ~UploadAuthClient() override { oss::OSSLog::disableLog(); }
    foundation::LogCapture log;
    std::shared_ptr<VODUploadClient> client = VODUploadClient::create();
};

}  // namespace

TEST(UploadAuthText, ReadsTextKeysPrefersNonEmptyExpireUTCTimeAndNamesWhatIsMalformed) {
    auto parsed = parseUploadAuthText(encoded(kAuth));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed.value->accessKeyId, "STS.id");
    EXPECT_EQ(parsed.value->securityToken, "token-1");
    EXPECT_EQ(parsed.value->expireTime(), "2030-01-01T00:00:00Z");
    Value emptyUtc = kAuth;
    emptyUtc["ExpireUTCTime"] = "";
    EXPECT_EQ(parseUploadAuthText(encoded(emptyUtc)).value->expireTime(), "3600");
    Value noUtc = kAuth;
    noUtc.erase("ExpireUTCTime");
    EXPECT_EQ(parseUploadAuthText(encoded(noUtc)).value->expireTime(), "3600");

    // Missing keys, and keys that are not texts, are absent.
    parsed = parseUploadAuthText(encoded({{"AccessKeyId", "id"}, {"AccessKeySecret", 5}}));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed.value->accessKeyId, "id");
    EXPECT_EQ(parsed.value->accessKeySecret, std::nullopt);
    EXPECT_EQ(parsed.value->securityToken, std::nullopt);
    EXPECT_EQ(parsed.value->expireTime(), std::nullopt);

    EXPECT_EQ(parseUploadAuthText("not base64!").error, "upload auth format is error");
    EXPECT_EQ(parseUploadAuthText(base64Encode("{\"AccessKeyId\":")).error, "upload auth format is error.");
    EXPECT_EQ(parseUploadAuthText(base64Encode("[1,2]")).error, "upload auth format is error.");
    EXPECT_EQ(parseUploadAuthText("").error, "upload auth format is error.");
    EXPECT_EQ(parseUploadAddressText("%%%").error, "upload address format is error.");
    EXPECT_EQ(parseUploadAddressText(base64Encode("Endpoint=x")).error, "upload address format is error.");
}

// Malformed texts are refused with their log lines; a good one stores its credentials and, when not
// empty, its region, and the secret never reaches the log.
TEST_F(UploadAuthClient, ParseUploadAuthAndAddressStoreWhatIsWellFormed) {
    OSSConfig config;
    EXPECT_FALSE(engineOf(*client).parseUploadAuth("***", config));
    EXPECT_FALSE(engineOf(*client).parseUploadAuth(base64Encode("{oops"), config));
    auto file = std::make_shared<UploadFileInfo>();
    EXPECT_FALSE(engineOf(*client).parseUploadAddress(base64Encode("\"just text\""), file));
    EXPECT_EQ(log.lines(), (std::vector<std::string>{debugLine("upload auth format is error"),
                                                     debugLine("upload auth format is error."),
                                                     debugLine("upload address format is error.")}));
    EXPECT_FALSE(config.accessKeyId);
    EXPECT_FALSE(file->endpoint);
    EXPECT_FALSE(engineOf(*client).curUploadAddress());

    config.secretToken = "old";
    Value partial = {{"AccessKeyId", "id"}, {"AccessKeySecret", "s"}, {"Region", ""}};
    EXPECT_TRUE(engineOf(*client).parseUploadAuth(encoded(partial), config));
    EXPECT_EQ(config.accessKeyId, "id");
    EXPECT_EQ(config.secretToken, std::nullopt);  // an absent key clears the old value
    EXPECT_EQ(client->region(), "cn-shanghai");

    EXPECT_TRUE(engineOf(*client).parseUploadAuth(encoded(kAuth), config));
    EXPECT_EQ(config.expireTime, "2030-01-01T00:00:00Z");
    EXPECT_EQ(client->region(), "cn-beijing");
    for (const auto& line : log.lines()) EXPECT_EQ(line.find("sts-secret"), std::string::npos) << line;
}

TEST_F(UploadAuthClient, SetUploadAuthAndAddressFillsTheFileUnlessARememberedVideoNamesIt) {
    test::TempDir dir;
    auto file = std::make_shared<UploadFileInfo>();
    file->filePath = dir.file("fresh.mp4");
    test::writeFile(file->filePath, "abc");
    VODUploadClientTestAccess::setCur(*client, file);
    std::string address = encoded({{"Endpoint", "oss-cn-beijing.aliyuncs.com"}, {"Bucket", "b"}, {"FileName", "sv/1.mp4"}});

    EXPECT_FALSE(client->setUploadAuthAndAddress(nullptr, encoded(kAuth), address));
    EXPECT_FALSE(client->setUploadAuthAndAddress(file, "", address));
    EXPECT_FALSE(client->setUploadAuthAndAddress(file, "@@@@", address));
    EXPECT_FALSE(file->bucket);

    ASSERT_TRUE(client->setUploadAuthAndAddress(file, encoded(kAuth), address));
    EXPECT_EQ(engineOf(*client).ossConfig()->accessKeyId, "STS.id");
    EXPECT_EQ(file->endpoint, "oss-cn-beijing.aliyuncs.com");
    EXPECT_EQ(file->bucket, "b");
    EXPECT_EQ(file->object, "sv/1.mp4");
    EXPECT_EQ(engineOf(*client).curUploadAddress(), address);
    auto& cache = VODObjectCache::sharedCache();
    auto entry = cache.getObjectWithPath(file->filePath);
    EXPECT_EQ(entry->object, "sv/1.mp4");

    // The remembered object wins over the service's name only once it has a video id.
    std::string another = encoded({{"Endpoint", "e"}, {"Bucket", "b"}, {"FileName", "sv/new.mp4"}});
    ASSERT_TRUE(engineOf(*client).parseUploadAddress(another, file));
    EXPECT_EQ(file->object, "sv/new.mp4");
    entry->object = "sv/earlier.mp4";
    entry->videoId = "vid-9";
    cache.saveObject(entry, file->filePath);
    ASSERT_TRUE(engineOf(*client).parseUploadAddress(another, file));
    EXPECT_EQ(file->object, "sv/earlier.mp4");
    cache.clearObjectWithPath(file->filePath);
}

// A host's own resume cache is the one its clients read and write; the process-wide one is left alone.
TEST(UploadAddress, GoesIntoTheResumeCacheTheHostGave) {
    test::TempDir dir;
    VODServiceConfig config;
    config.resumeCache =
        std::make_shared<VODObjectCache>(std::make_shared<foundation::UserDefaults>(dir.file("defaults.json")));
    auto client = VODUploadClient::create(config);
    auto file = std::make_shared<UploadFileInfo>();
    file->filePath = dir.file("own.mp4");
    test::writeFile(file->filePath, "0123");
    VODUploadClientTestAccess::setCur(*client, file);
    ASSERT_TRUE(engineOf(*client).parseUploadAddress(encoded({{"Endpoint", "e"}, {"Bucket", "b"}, {"FileName", "sv/own.mp4"}}),
                                           file));
    ASSERT_EQ(config.resumeCache->objects().size(), 1u);
    EXPECT_EQ(config.resumeCache->objects()[0]->object, "sv/own.mp4");
    auto shared = VODObjectCache::sharedCache().getObjectWithPath(file->filePath);
    EXPECT_TRUE(!shared || shared->object.empty());
    // Stored in the host's file: a cache opened on it later finds the object again.
    VODObjectCache reopened(std::make_shared<foundation::UserDefaults>(dir.file("defaults.json")));
    EXPECT_EQ(reopened.getObjectWithPath(file->filePath)->object, "sv/own.mp4");
}
