#include <fcntl.h>
#include <sys/stat.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <regex>

#include "VODUpload/src/VODDateFormat.h"
#include "VODUpload/src/VODInnerFileInfo.h"
#include "VODUpload/src/VODObjectCache.h"
#include "engine_test_support.h"
#include "foundation/crypto.h"

using quorvane::Value;
using quorvane::VODInnerFileInfo;
using quorvane::test::TempDir;

namespace {

// MD5 straight from OpenSSL, to check the engine's streaming reader against.
std::string opensslMd5(const std::string& bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &len, EVP_md5(), nullptr);
    static const char* hex = "0123456789abcdef";
    std::string out;
    for (unsigned i = 0; i < len; ++i) {
        out.push_back(hex[digest[i] >> 4]);
        out.push_back(hex[digest[i] & 15]);
    }
    return out;
}

}  // namespace

// A 4 TiB sparse file: reading it whole would never end within the test's time-out, so a correct
// answer shows that only the first MiB was read.
TEST(VODInnerFileInfo, HashesOnlyTheFirstMebibyteOfAHugeFile) {
    TempDir dir;
    std::string path = dir.file("huge.mp4");
    std::string head = quorvane::test::randomBytes(VODInnerFileInfo::kMaxHashSize + 777, 42);
    quorvane::test::writeFile(path, head);
    const off_t hugeSize = off_t(4) << 40;
    if (::truncate(path.c_str(), hugeSize) != 0) GTEST_SKIP() << "file system refuses a sparse 4 TiB file";

    std::string expected = opensslMd5(head.substr(0, VODInnerFileInfo::kMaxHashSize));
    EXPECT_EQ(VODInnerFileInfo::md5WithPath(path, VODInnerFileInfo::kMaxHashSize), expected);

    VODInnerFileInfo info(path);
    EXPECT_EQ(info.fileHash, expected);
    EXPECT_EQ(info.fileSize, std::to_string(hugeSize));
    EXPECT_EQ(info.fileName, "huge.mp4");
    EXPECT_EQ(info.fileType, "video");
    EXPECT_TRUE(std::regex_match(info.fileCreateTime, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:0[0-5]\dZ)")))
        << info.fileCreateTime;
}

TEST(VODInnerFileInfo, ShortFilesAreHashedWholeAndLimitsCountWholeBuffers) {
    TempDir dir;
    std::string bytes = quorvane::test::randomBytes(1000, 42);
    quorvane::test::writeFile(dir.file("a.jpg"), bytes);
    quorvane::test::writeFile(dir.file("empty"), "");
    EXPECT_EQ(VODInnerFileInfo(dir.file("a.jpg")).fileHash, opensslMd5(bytes));
    // The limit is checked before each 256-byte read: 257 allows two reads.
    EXPECT_EQ(VODInnerFileInfo::md5WithPath(dir.file("a.jpg"), 257), opensslMd5(bytes.substr(0, 512)));
    EXPECT_EQ(VODInnerFileInfo::md5WithPath(dir.file("a.jpg"), 0), "d41d8cd98f00b204e9800998ecf8427e");

    VODInnerFileInfo empty(dir.file("empty"));
    EXPECT_EQ(empty.fileSize, "0");
    EXPECT_EQ(empty.fileHash, "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(empty.fileType, "other");
    const Value dictionary = VODInnerFileInfo(dir.file("a.jpg")).toDictionary();
    EXPECT_EQ(dictionary, (Value{{"FileName", "a.jpg"}, {"FileSize", "1000"},
                                 {"FileCreateTime", VODInnerFileInfo(dir.file("a.jpg")).fileCreateTime},
                                 {"FileHash", opensslMd5(bytes)}}));
}

TEST(VODInnerFileInfo, MissingOrUnreadableFileGivesEmptyFields) {
    TempDir dir;
    VODInnerFileInfo missing(dir.file("gone.mov"));
    EXPECT_EQ(missing.fileSize, "0");
    EXPECT_EQ(missing.fileHash, "");
    EXPECT_EQ(missing.fileCreateTime, "");
    EXPECT_EQ(missing.fileName, "gone.mov");
    EXPECT_EQ(missing.fileType, "video");
    EXPECT_EQ(VODInnerFileInfo::md5WithPath(dir.path(), 1024), std::nullopt);  // a directory cannot be read
    EXPECT_EQ(missing.toUrlString(),
              R"({"FileHash":"","FileName":"gone.mov","FileCreateTime":"","FileSize":"0"})");
}

TEST(VODInnerFileInfo, TypeComesFromTheExtension) {
    EXPECT_EQ(VODInnerFileInfo::fileTypeForExtension("MP4"), "video");
    EXPECT_EQ(VODInnerFileInfo::fileTypeForExtension("m4a"), "audio");
    EXPECT_EQ(VODInnerFileInfo::fileTypeForExtension("png"), "img");
    EXPECT_EQ(VODInnerFileInfo::fileTypeForExtension("pdf"), "other");
    EXPECT_EQ(VODInnerFileInfo::fileTypeForExtension("qqq"), "other");
    EXPECT_EQ(VODInnerFileInfo::fileTypeForExtension(""), "other");
    EXPECT_EQ(quorvane::vodPathExtension("/a.b/clip"), "");
    EXPECT_EQ(quorvane::vodPathExtension("/a/clip.JPG"), "JPG");
}

TEST(VODDateFormat, SecondsArePaddedToThreeDigitsAndZIsLiteral) {
    using namespace std::chrono;
    auto t = sys_days{year{2024} / 1 / 2} + hours(3) + minutes(4) + seconds(5);
    EXPECT_EQ(quorvane::vodDateString(t, true), "2024-01-02T03:04:005Z");
    EXPECT_TRUE(std::regex_match(quorvane::vodDateString(t, false), std::regex(R"(2024-01-0[123]T\d\d:\d\d:005Z)")));
    EXPECT_EQ(quorvane::vodDateDescription(t), "2024-01-02 03:04:05 +0000");
}

TEST(VODObjectCache, IdentityIsSizeNameAndCreationDate) {
    TempDir dir;
    quorvane::test::writeFile(dir.file("clip.mp4"), std::string(1000, 'x'));
    auto text = quorvane::foundation::base64Decode(quorvane::VODObjectCache::uniqueIdWithFilePath(dir.file("clip.mp4")));
    ASSERT_TRUE(text);
    EXPECT_TRUE(std::regex_match(*text, std::regex(R"(1000clip\.mp4\d{4}-\d\d-\d\d \d\d:\d\d:\d\d \+0000)"))) << *text;
    auto missing = quorvane::foundation::base64Decode(quorvane::VODObjectCache::uniqueIdWithFilePath(dir.file("no.mp4")));
    EXPECT_EQ(missing, "0no.mp4");
}

// procfs keeps no birth time: the identity must not fall back to the modification time, which
// changes with every edit of the file.
TEST(VODObjectCache, AFileWithoutABirthTimeHasNoCreationDate) {
    const std::string path = "/proc/self/status";
    struct statx sx {};
    if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &sx) != 0 || (sx.stx_mask & STATX_BTIME))
        GTEST_SKIP() << "this kernel gives procfs files a birth time";
    EXPECT_EQ(VODInnerFileInfo(path).fileCreateTime, "");
    EXPECT_EQ(quorvane::foundation::base64Decode(quorvane::VODObjectCache::uniqueIdWithFilePath(path)), "0status");
}
