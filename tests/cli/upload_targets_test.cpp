// Which files `upload -r` and `verify -r` take: globs on paths, names and the directories files lie in.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "upload_targets.h"

namespace quorvane::app {
namespace {
namespace fs = std::filesystem;

TEST(UploadTargets, ExcludeAndIncludeMatchDirectoriesAsWellAsFiles) {
    auto root = fs::temp_directory_path() / ("quorvane-targets-" + std::to_string(::getpid()));
    fs::remove_all(root);
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
    fs::remove_all(root);
}

}  // namespace
}  // namespace quorvane::app
