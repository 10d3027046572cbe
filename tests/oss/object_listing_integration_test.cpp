// The reading, listing and deleting calls and presigned URLs of the client against the emulator: pages
// followed by their markers, ranges cut exactly, deletes that report what they did, and URLs that the
// service accepts only as signed.
#include <set>

#include "oss_fixture.h"

namespace oss_test {
namespace {

class ObjectCalls : public OssEmulatorTest {
protected:
    void SetUp() override {
        OssEmulatorTest::SetUp();
        OSSClientConfiguration conf;
        conf.region = cloud.options().region;
        client = makeClient(conf);
    }
    void put(const std::string& key, const std::string& bytes) {
        auto request = std::make_shared<OSSPutObjectRequest>();
        request->bucketName = bucket();
        request->objectKey = key;
        request->uploadingData = bytes;
        auto task = waited(client->putObject(request));
        ASSERT_FALSE(task->error()) << task->error()->toString();
    }
    std::shared_ptr<OSSListObjectsResult> list(const std::string& prefix, const std::string& delimiter,
                                               const std::string& marker, int maxKeys) {
        auto request = std::make_shared<OSSListObjectsRequest>();
        request->bucketName = bucket();
        request->prefix = prefix;
        request->delimiter = delimiter;
        request->marker = marker;
        request->maxKeys = maxKeys;
        auto task = waited(client->listObjects(request));
        EXPECT_FALSE(task->error()) << task->error()->toString();
        return task->result();
    }
    std::unique_ptr<OSSClient> client;
};

TEST_F(ObjectCalls, ListingPagesByMarkerAndRollsUpPrefixes) {
    std::set<std::string> keys;
    for (int i = 0; i < 7; ++i) keys.insert("p/" + std::to_string(i) + ".bin");
    for (const auto& key : keys) put(key, key);
    put("p/sub/a", "a");
    put("p/sub/b", "b");
    put("q/other", "x");

    // Pages of two, each one's marker where the last ended: every key once, in order.
    std::vector<std::string> seen;
    std::string marker;
    int pages = 0;
    while (true) {
        auto page = list("p/", "", marker, 2);
        ASSERT_TRUE(page);
        ++pages;
        for (const auto& object : page->objects) seen.push_back(object.key);
        if (!page->isTruncated) break;
        ASSERT_FALSE(page->nextMarker.empty());
        marker = page->nextMarker;
    }
    EXPECT_EQ(pages, 5);
    ASSERT_EQ(seen.size(), 9u);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_EQ(seen.front(), "p/0.bin");
    EXPECT_EQ(seen.back(), "p/sub/b");

    auto level = list("p/", "/", "", 0);
    ASSERT_TRUE(level);
    EXPECT_EQ(level->objects.size(), 7u);
    EXPECT_EQ(level->commonPrefixes, std::vector<std::string>{"p/sub/"});
    EXPECT_EQ(level->objects[0].size, 7u);  // "p/0.bin" holds its own name
    EXPECT_FALSE(level->objects[0].eTag.empty());

    auto bad = std::make_shared<OSSListObjectsRequest>();
    bad->bucketName = "Not_A_Bucket";
    EXPECT_TRUE(waited(client->listObjects(bad))->isFaulted());
}

TEST_F(ObjectCalls, RangesComeBackExactlyAndAWholeObjectIsCrcChecked) {
    std::string bytes;
    for (int i = 0; i < 5000; ++i) bytes += static_cast<char>(i * 7);
    put("r/data", bytes);
    auto get = [&](std::optional<std::pair<std::uint64_t, std::uint64_t>> range) {
        auto request = std::make_shared<OSSGetObjectRequest>();
        request->bucketName = bucket();
        request->objectKey = "r/data";
        request->range = range;
        return waited(client->getObject(request));
    };
    auto middle = get(std::make_pair(100, 1099));
    ASSERT_TRUE(middle->result());
    EXPECT_EQ(middle->result()->data, bytes.substr(100, 1000));
    EXPECT_EQ(middle->result()->objectSize, 5000u);
    auto tail = get(std::make_pair(4990, 4999));  // the last bytes
    ASSERT_TRUE(tail->result()) << tail->error()->toString();
    EXPECT_EQ(tail->result()->data, bytes.substr(4990));
    auto whole = get(std::nullopt);
    ASSERT_TRUE(whole->result());
    EXPECT_EQ(whole->result()->data, bytes);

    cloud.addFault(emulator::Fault::corruptCrc("GetObject"));
    auto corrupt = get(std::nullopt);
    ASSERT_TRUE(corrupt->isFaulted());
    EXPECT_EQ(corrupt->error()->code, OSSClientErrorCodeInvalidCRC);
    EXPECT_TRUE(get(std::make_pair(10, 5))->isFaulted());  // first after last: refused before sending
}

TEST_F(ObjectCalls, DeletesReportWhatWentAndPresignedUrlsAreSignedForOneRequest) {
    for (const char* key : {"d/1", "d/2", "d/3"}) put(key, key);
    auto many = std::make_shared<OSSDeleteMultipleObjectsRequest>();
    many->bucketName = bucket();
    many->keys = {"d/1", "d/2", "d/missing"};
    auto deleted = waited(client->deleteMultipleObjects(many));
    ASSERT_TRUE(deleted->result()) << deleted->error()->toString();
    EXPECT_EQ(std::set<std::string>(deleted->result()->deletedKeys.begin(), deleted->result()->deletedKeys.end()),
              (std::set<std::string>{"d/1", "d/2", "d/missing"}));
    many->keys = {"d/3"};
    auto quiet = std::make_shared<OSSDeleteMultipleObjectsRequest>(*many);
    quiet->quiet = true;
    auto quietly = waited(client->deleteMultipleObjects(quiet));
    ASSERT_TRUE(quietly->result());
    EXPECT_TRUE(quietly->result()->failures.empty());
    EXPECT_TRUE(cloud.objects().empty());
    auto none = std::make_shared<OSSDeleteMultipleObjectsRequest>();
    none->bucketName = bucket();
    EXPECT_TRUE(waited(client->deleteMultipleObjects(none))->isFaulted());

    put("s/shared", "shared bytes");
    OSSPresignRequest presign;
    presign.bucketName = bucket();
    presign.objectKey = "s/shared";
    presign.expires = std::chrono::minutes(5);
    Error error;
    auto url = client->presignObjectURL(presign, &error);
    ASSERT_TRUE(url) << error.toString();
    for (const char* part : {"x-oss-signature-version=OSS4-HMAC-SHA256", "x-oss-credential=", "x-oss-date=",
                             "x-oss-expires=300", "x-oss-signature="})
        EXPECT_NE(url->find(part), std::string::npos) << part << " in " << *url;
    EXPECT_EQ(url->find(cloud.options().accessKeySecret), std::string::npos);
    foundation::HttpRequest fetch;
    fetch.url = *url;
    auto answer = http->sendSync(fetch);
    ASSERT_TRUE(answer.ok());
    EXPECT_EQ(answer.response.status, 200);
    EXPECT_EQ(answer.response.body, "shared bytes");
    fetch.method = "DELETE";  // signed for GET only
    EXPECT_EQ(http->sendSync(fetch).response.status, 403);
    EXPECT_TRUE(cloud.object(bucket(), "s/shared"));

    presign.expires = std::chrono::hours(24 * 7) + std::chrono::seconds(1);
    EXPECT_FALSE(client->presignObjectURL(presign, &error));
    OSSClientConfiguration v1;
    v1.signatureVersion = OSSSignatureVersion::V1;
    presign.expires = std::chrono::minutes(1);
    EXPECT_FALSE(makeClient(v1)->presignObjectURL(presign, &error));

    // Credentials that arrive without their secret: no URL, and an error that says why.
    auto noSecret = std::make_shared<OSSFederationCredentialProvider>([] {
        auto token = std::make_shared<OSSFederationToken>();
        token->tAccessKey = "STS.id";
        token->tToken = "token";
        return token;
    });
    OSSClientConfiguration v4;
    v4.region = cloud.options().region;
    error = Error();
    EXPECT_FALSE(makeClient(v4, noSecret)->presignObjectURL(presign, &error));
    EXPECT_EQ(error.code, OSSClientErrorCodeSignFailed) << error.toString();
}

}  // namespace
}  // namespace oss_test
