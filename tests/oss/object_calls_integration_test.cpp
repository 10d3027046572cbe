// The object calls of the client against the emulator: keys that travel byte for byte (generated keys
// with empty and dot segments, characters that mean something in a URL, unicode and lengths up to the
// 1,023-byte limit, by a single put and by a resumable multipart upload); pages followed by their
// markers, ranges cut exactly, deletes that report what they did, and URLs that the service accepts only
// as signed.
#include <set>

#include "oss/oss_endpoint.h"
#include "oss_fixture.h"
#include "support/loopback_http.h"

namespace oss_test {
namespace {

constexpr std::size_t kMaxKeyBytes = 1023;

// Keys from a seeded generator, so that a failure names a key that the next run makes again.
class KeyGenerator {
public:
    explicit KeyGenerator(unsigned seed) : rng_(seed) {}

    std::string next() {
        std::string key = word();  // a key never starts with '/': the first segment has a name
        const int segments = pick(0, 7);
        for (int i = 0; i < segments; ++i) key += "/" + segment();
        if (pick(0, 5) == 0) key += "/";  // a "folder" key: its last segment is empty
        if (pick(0, 7) == 0) key = fill(key);
        if (key.size() > kMaxKeyBytes) key = fill(key.substr(0, utf8Boundary(key, kMaxKeyBytes - 8)));
        return key;
    }

private:
    int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng_); }

    std::string segment() {
        const int kind = pick(0, 5);
        return kind == 0 ? "" : kind == 1 ? "." : kind == 2 ? ".." : word();
    }

    std::string word() {
        static const std::vector<std::string> pieces = {
            "a", "Z", "0", "-", "_", "~", ".", "%", "%2F", "%25", "%u0041", "+", " ", "?", "#", "&", "=", ";",
            ",", "@", "!", "$", "'", "(", "*", "[", "\\", ":", "é", "日本", "🙂", "\u00a0", "ß",
        };
        std::string out;
        const int count = pick(1, 6);
        for (int i = 0; i < count; ++i) out += pieces[static_cast<std::size_t>(pick(0, int(pieces.size()) - 1))];
        if (out.front() == '\\') out.insert(0, "x");  // a key cannot start with a backslash either
        return out;
    }

    // Grows the key to exactly the longest allowed length.
    std::string fill(std::string key) {
        while (key.size() < kMaxKeyBytes) key += pick(0, 9) == 0 ? '/' : static_cast<char>('a' + pick(0, 25));
        return key;
    }

    static std::size_t utf8Boundary(const std::string& text, std::size_t at) {
        while (at > 0 && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) --at;
        return at;
    }

    std::mt19937 rng_;
};

TEST(ObjectKeyEncoding, EveryByteOfTheKeySurvivesItsEncoding) {
    EXPECT_EQ(foundation::urlEncode(""), "");
    EXPECT_EQ(oss::encodeObjectKey("photos//2024/x.jpg"), "photos//2024/x.jpg");
    EXPECT_EQ(oss::encodeObjectKey("a/"), "a/");
    EXPECT_EQ(oss::encodeObjectKey("x/a/../b/./c"), "x/a/../b/./c");
    EXPECT_EQ(oss::encodeObjectKey("a b/c?d#e%f+g"), "a%20b/c%3Fd%23e%25f%2Bg");
}

TEST_F(OssEmulatorTest, GeneratedKeysAreStoredExactlyAsGivenByPutAndByMultipart) {
    KeyGenerator keys(20240611);
    auto client = makeClient();
    std::set<std::string> given;
    bool sawLongest = false, sawDots = false, sawEmpty = false;
    for (unsigned n = 0; n < 80; ++n) {
        auto key = keys.next();
        if (!given.insert(key).second) continue;
        sawLongest |= key.size() == kMaxKeyBytes;
        sawDots |= key.find("/../") != std::string::npos || key.find("/./") != std::string::npos;
        sawEmpty |= key.find("//") != std::string::npos;
        auto bytes = randomBytes(1 + n * 37, n);
        auto task = waited(client->putObject(putOf(key, bytes)));
        ASSERT_FALSE(task->error()) << "key '" << key << "': " << task->error()->toString();
        EXPECT_EQ(cloud.objectBytes(bucket(), key), bytes) << key;
    }
    EXPECT_TRUE(sawLongest && sawDots && sawEmpty) << "the generator no longer makes the keys this test is for";

    // A few through the multipart path, from files: initiation, parts, listing and completion all
    // name the key.
    constexpr std::int64_t kPart = 128 * 1024;
    for (unsigned n = 0; n < 4; ++n) {
        auto key = keys.next() + "/..//./" + std::to_string(n);
        if (key.size() > kMaxKeyBytes) key = key.substr(key.size() - kMaxKeyBytes + 1);
        if (key.front() == '/') key.front() = 'k';
        given.insert(key);
        std::string bytes;
        auto path = makeFile("part" + std::to_string(n) + ".bin", 2 * kPart + 100 * n + 1, &bytes, int(n) + 7);
        auto task = waited(client->resumableUpload(resumableOf(path, key, kPart)));
        ASSERT_FALSE(task->error()) << "key '" << key << "': " << task->error()->toString();
        auto object = cloud.object(bucket(), key);
        ASSERT_TRUE(object) << "nothing stored under '" << key << "'";
        EXPECT_EQ(object->partCount, 3);
        EXPECT_EQ(cloud.objectBytes(bucket(), key), bytes) << key;
    }

    // Nothing landed under another key.
    std::set<std::string> stored;
    for (const auto& object : cloud.objects())
        if (object.bucket == bucket()) stored.insert(object.key);
    EXPECT_EQ(stored, given);
}

class ObjectCalls : public OssEmulatorTest {
protected:
    void SetUp() override {
        OssEmulatorTest::SetUp();
        OSSClientConfiguration conf;
        conf.region = cloud.options().region;
        client = makeClient(conf);
    }
    void put(const std::string& key, const std::string& bytes) {
        auto task = waited(client->putObject(putOf(key, bytes)));
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
    for (const char* key : {"p/sub/a", "p/sub/b", "q/other"}) put(key, key);

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

// Services that name no NextMarker on a truncated page (S3's way without a delimiter): the next page
// starts after the page's last key, or after its last common prefix when that sorts later.
TEST(ListObjectsWithoutNextMarker, GoesOnAfterTheLastKeyOrPrefix) {
    const std::string pages[] = {
        "<Contents><Key>a/1</Key><Size>1</Size></Contents><CommonPrefixes><Prefix>a/x/</Prefix></CommonPrefixes>",
        "<Contents><Key>b/1</Key><Size>1</Size></Contents><Contents><Key>b/2</Key><Size>2</Size></Contents>",
        "<CommonPrefixes><Prefix>c/</Prefix></CommonPrefixes><Contents><Key>d</Key><Size>3</Size></Contents>"};
    std::atomic<int> served{0};
    quorvane::test::LoopbackHttpServer server;  // after what its handler uses, so it stops first
    server.http().set_keep_alive_max_count(1);  // nothing kept alive holds the server's end
    server.http().Get(R"(/.*)", [&](const httplib::Request&, httplib::Response& res) {
        res.set_content("<ListBucketResult><IsTruncated>true</IsTruncated>" + pages[served++ % 3] +
                            "</ListBucketResult>",
                        "application/xml");
    });
    server.start();
    OSSClient client(server.url(), std::make_shared<OSSPlainTextAKSKPairCredentialProvider>("id", "secret"));
    for (const char* expected : {"a/x/", "b/2", "d"}) {
        auto request = std::make_shared<OSSListObjectsRequest>();
        request->bucketName = "bucket";
        auto task = client.listObjects(request);
        ASSERT_TRUE(task->waitFor(kWait));
        ASSERT_FALSE(task->error()) << task->error()->toString();
        EXPECT_EQ(task->result()->nextMarker, expected);
    }
}

TEST_F(ObjectCalls, RangesComeBackExactlyAndAWholeObjectIsCrcChecked) {
    std::string bytes;
    for (int i = 0; i < 5000; ++i) bytes += static_cast<char>(i * 7);
    put("r/data", bytes);
    auto get = [&](std::optional<std::pair<std::uint64_t, std::uint64_t>> range) {
        auto request = on<OSSGetObjectRequest>("r/data");
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
    EXPECT_EQ(codeOf(get(std::nullopt)), OSSClientErrorCodeInvalidCRC);
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
    EXPECT_EQ(error.code, OSSClientErrorCodeInvalidArgument);
    EXPECT_NE(error.toString().find("1 second to 7 days"), std::string::npos) << error.toString();
    OSSClientConfiguration v1;
    v1.signatureVersion = OSSSignatureVersion::V1;
    v1.region = cloud.options().region;  // refused for its version, not for want of a region
    presign.expires = std::chrono::minutes(1);
    error = Error();
    EXPECT_FALSE(makeClient(v1)->presignObjectURL(presign, &error));
    EXPECT_NE(error.toString().find("V4 only"), std::string::npos) << error.toString();

    // Credentials that arrive without their secret: no URL, and an error that says why.
    emulator::StsCredentials noSecret;
    noSecret.AccessKeyId = "STS.id";
    noSecret.SecurityToken = "token";
    OSSClientConfiguration v4;
    v4.region = cloud.options().region;
    error = Error();
    EXPECT_FALSE(makeClient(v4, stsKeys(noSecret))->presignObjectURL(presign, &error));
    EXPECT_EQ(error.code, OSSClientErrorCodeSignFailed) << error.toString();
}

}  // namespace
}  // namespace oss_test
