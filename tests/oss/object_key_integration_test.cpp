// Object keys travel byte for byte: generated keys with empty and dot segments, characters that mean
// something in a URL, unicode and lengths up to the 1,023-byte limit are stored under exactly the key
// given, by a single put and by a resumable multipart upload, over real HTTP to the emulator.
#include <set>

#include "oss/oss_endpoint.h"
#include "oss_fixture.h"

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
        switch (pick(0, 5)) {
        case 0: return "";
        case 1: return ".";
        case 2: return "..";
        default: return word();
        }
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

}  // namespace

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
        auto put = std::make_shared<OSSPutObjectRequest>();
        put->bucketName = bucket();
        put->objectKey = key;
        put->uploadingData = bytes;
        auto task = waited(client->putObject(put));
        ASSERT_FALSE(task->error()) << "key '" << key << "': " << task->error()->toString();
        auto stored = cloud.objectBytes(bucket(), key);
        ASSERT_TRUE(stored) << "nothing stored under '" << key << "'";
        EXPECT_EQ(*stored, bytes) << key;
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
        auto r = std::make_shared<OSSResumableUploadRequest>();
        r->bucketName = bucket();
        r->objectKey = key;
        r->uploadingFileURL = path;
        r->partSize = kPart;
        r->recordDirectoryPath = recordDir();
        auto task = waited(client->resumableUpload(r));
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

}  // namespace oss_test
