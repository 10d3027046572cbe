// The command line's helpers: text from servers and file names made safe for a terminal (no control
// character or escape sequence survives, bytes that are not UTF-8 are replaced, credentials are
// redacted); which files `upload -r` and `verify -r` take; the credentials file as `quorvane config`
// writes it and every command reads it; and how long a presigned URL may last.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "foundation/temp_files.h"
#include "presign_expiry.h"
#include "profile_file.h"
#include "terminal_text.h"
#include "upload_targets.h"

namespace quorvane::app {
namespace {
namespace fs = std::filesystem;

TEST(TerminalText, ControlsAndEscapeSequencesGoAndBadBytesAreReplaced) {
    EXPECT_EQ(printableText("plain name.bin"), "plain name.bin");
    EXPECT_EQ(printableText("caf\xC3\xA9 \xE4\xB8\xAD"), "caf\xC3\xA9 \xE4\xB8\xAD");  // UTF-8 stays
    auto coloured = printableText("\x1b[31mred\x1b[0m\x07\x7f");
    EXPECT_EQ(coloured.find('\x1b'), std::string::npos);
    EXPECT_EQ(coloured.find('\x07'), std::string::npos);
    EXPECT_EQ(coloured.find('\x7f'), std::string::npos);
    EXPECT_EQ(printableText("a\xC2\x9B" "b"), "ab");                        // C1 CSI
    EXPECT_EQ(printableText("x\xff\xfey"), "x\xEF\xBF\xBD\xEF\xBF\xBDy");    // invalid bytes
    EXPECT_EQ(printableText("\xC0\xAF"), "\xEF\xBF\xBD\xEF\xBF\xBD");        // overlong
    EXPECT_EQ(printableText("\xED\xA0\x80").find("\xED"), std::string::npos);  // surrogate
    EXPECT_EQ(printableText("one\ntwo\tthree"), "one two three");
}

TEST(TerminalText, SecretsAndTheTokenHeaderOfAStringToSignAreRedacted) {
    std::string toSign = "PUT\n\napplication/octet-stream\nMon, 01 Jan 2024\nx-oss-security-token:CAIS-token-text\n/b/k";
    auto shown = redactSecrets("SignatureDoesNotMatch: " + toSign + " key SECRETVALUE", {"SECRETVALUE", ""});
    EXPECT_EQ(shown.find("CAIS-token-text"), std::string::npos);
    EXPECT_EQ(shown.find("SECRETVALUE"), std::string::npos);
    EXPECT_NE(shown.find("x-oss-security-token:***"), std::string::npos);
    EXPECT_NE(shown.find("/b/k"), std::string::npos);  // the rest of the text stays
    EXPECT_EQ(redactSecrets("aaaaaaaaaaaaaaaa", {"aaaaaaaa"}), "******");
    // A short "secret" is no key: the letters of messages stay as they are.
    EXPECT_EQ(redactSecrets("this is it", {"s", "is", "this is"}), "this is it");
    EXPECT_EQ(redactSecrets("key=abcdefgh.", {"abcdefgh"}), "key=***.");
}

TEST(UploadTargets, ExcludeAndIncludeMatchDirectoriesAsWellAsFiles) {
    foundation::ScopedTempDir dir;
    const fs::path root = dir.path();
    for (const char* name : {"a.jpg", "tmp/b.jpg", "sub/tmp/c.jpg", "sub/d.txt", "tmpfile.jpg", "sub/x/tmp"}) {
        fs::create_directories((root / name).parent_path());
        std::ofstream(root / name) << name;
    }
    auto pick = [&](std::vector<std::string> include, std::vector<std::string> exclude) {
        std::string problem;
        auto files = selectFiles({root.string()}, Selection{true, include, exclude}, problem);
        EXPECT_EQ(problem, "");
        std::set<std::string> relative;
        for (const auto& file : files) relative.insert(file.relative);
        return relative;
    };
    // "tmp/": every directory named tmp, at any depth; a file named tmp stays.
    EXPECT_EQ(pick({}, {"tmp/"}), (std::set<std::string>{"a.jpg", "sub/d.txt", "tmpfile.jpg", "sub/x/tmp"}));
    EXPECT_EQ(pick({}, {"tmp"}), (std::set<std::string>{"a.jpg", "sub/d.txt", "tmpfile.jpg"}));
    EXPECT_EQ(pick({}, {"sub/tmp/"}), (std::set<std::string>{"a.jpg", "tmp/b.jpg", "sub/d.txt", "tmpfile.jpg", "sub/x/tmp"}));
    EXPECT_EQ(pick({}, {"tmp/*"}), (std::set<std::string>{"a.jpg", "sub/tmp/c.jpg", "sub/d.txt", "tmpfile.jpg", "sub/x/tmp"}));
    EXPECT_EQ(pick({"*.jpg"}, {"tmp/"}), (std::set<std::string>{"a.jpg", "tmpfile.jpg"}));
    EXPECT_EQ(pick({"sub/"}, {}), (std::set<std::string>{"sub/tmp/c.jpg", "sub/d.txt", "sub/x/tmp"}));
}

TEST(ProfileFile, WritesOneProfileKeepsTheRestAndReadsLongLines) {
    foundation::ScopedTempDir scratch;
    const fs::path dir = scratch.path();
    auto path = (dir / "quorvane" / "credentials").string();
    std::string problem;
    ASSERT_TRUE(writeProfile(path, "work", {{"endpoint", "https://oss-cn-hangzhou.aliyuncs.com"}, {"region", "cn-hangzhou"}},
                             problem)) << problem;
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    ASSERT_EQ(::stat((dir / "quorvane").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);

    // Another profile, a comment and an entry not given survive; a given entry is replaced, an empty one removed.
    {
        std::ofstream out(path, std::ios::app);
        out << "\n# kept\n[other]\naccess_key_id = other-id\n";
    }
    const std::string token(3000, 'T');  // STS tokens run past a thousand characters
    ASSERT_TRUE(writeProfile(path, "work", {{"region", "cn-beijing"}, {"security_token", token}, {"endpoint", ""}}, problem));
    auto profiles = readProfiles(path, problem);
    ASSERT_TRUE(profiles) << problem;
    EXPECT_EQ((*profiles)["work"]["region"], "cn-beijing");
    EXPECT_EQ((*profiles)["work"]["security_token"], token);
    EXPECT_EQ((*profiles)["work"].count("endpoint"), 0u);
    EXPECT_EQ((*profiles)["other"]["access_key_id"], "other-id");
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    EXPECT_NE(text.str().find("# kept"), std::string::npos);
    EXPECT_FALSE(fs::exists(path + ".new"));

    std::ofstream(path, std::ios::app) << "this line has no equals sign\n";
    EXPECT_FALSE(readProfiles(path, problem));
    EXPECT_NE(problem.find("cannot parse line"), std::string::npos);
}

TEST(PresignExpiry, DurationsOfOneSecondToSevenDays) {
    EXPECT_EQ(parsePresignExpiry("900"), std::chrono::seconds(900));
    EXPECT_EQ(parsePresignExpiry("90s"), std::chrono::seconds(90));
    EXPECT_EQ(parsePresignExpiry("15m"), std::chrono::seconds(900));
    EXPECT_EQ(parsePresignExpiry("2h"), std::chrono::seconds(7200));
    EXPECT_EQ(parsePresignExpiry("7d"), std::chrono::seconds(604800));
    EXPECT_EQ(parsePresignExpiry("604800"), std::chrono::seconds(604800));
    for (const char* bad : {"", "0", "604801", "8d", "169h", "1w", "-1", "1.5h", "h", "99999999"})
        EXPECT_FALSE(parsePresignExpiry(bad)) << bad;
}

}  // namespace
}  // namespace quorvane::app
