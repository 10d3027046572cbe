// The credentials file as `quorvane config` writes it and every command reads it, and how long a
// presigned URL may last.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "presign_expiry.h"
#include "profile_file.h"

namespace quorvane::app {
namespace {
namespace fs = std::filesystem;

TEST(ProfileFile, WritesOneProfileKeepsTheRestAndReadsLongLines) {
    auto dir = fs::temp_directory_path() / ("quorvane-profile-" + std::to_string(::getpid()));
    fs::remove_all(dir);
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
    fs::remove_all(dir);
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
