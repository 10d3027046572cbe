#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "foundation/host_paths.h"
#include "foundation/log.h"
#include "foundation/notification_center.h"
#include "foundation/temp_files.h"
#include "foundation/user_defaults.h"

using namespace quorvane;
using namespace quorvane::foundation;

TEST(TempFiles, UniqueNamesAcrossThreads) {
    std::mutex mutex;
    std::set<std::string> names;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                std::string s = globallyUniqueString();
                std::lock_guard lock(mutex);
                names.insert(s);
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(names.size(), 2000u);
}

// The conventional variables, each over the next, read only through the host's lookup.
TEST(HostPaths, EachVariableWinsOverTheNextAndEmptyOnesCountAsUnset) {
    const std::string uid = std::to_string(::getuid());
    auto lookup = [](std::map<std::string, std::string> vars) -> EnvironmentLookup {
        return [vars](const char* name) -> const char* {
            auto it = vars.find(name);
            return it == vars.end() ? nullptr : it->second.c_str();
        };
    };
    auto resolve = [&](std::map<std::string, std::string> vars) { return hostPathsFrom(lookup(std::move(vars))); };
    auto all = resolve({{"QUORVANE_TMPDIR", "/q//"}, {"TMPDIR", "/t"}, {"QUORVANE_DEFAULTS_FILE", "/d.json"},
                        {"XDG_CONFIG_HOME", "/x"}, {"HOME", "/h"}});
    EXPECT_EQ(all.temporaryDirectory, "/q/quorvane-" + uid + "/");
    EXPECT_EQ(all.userDefaultsFile, "/d.json");
    auto fallback = resolve({{"QUORVANE_TMPDIR", ""}, {"TMPDIR", "/t"}, {"QUORVANE_DEFAULTS_FILE", ""},
                             {"XDG_CONFIG_HOME", "/x"}, {"HOME", "/h"}});
    EXPECT_EQ(fallback.temporaryDirectory, "/t/quorvane-" + uid + "/");
    EXPECT_EQ(fallback.userDefaultsFile, "/x/quorvane/user-defaults.json");
    EXPECT_EQ(resolve({{"HOME", "/h"}}).userDefaultsFile, "/h/.config/quorvane/user-defaults.json");
    auto none = resolve({});
    EXPECT_EQ(none.temporaryDirectory, "/tmp/quorvane-" + uid + "/");
    EXPECT_EQ(none.userDefaultsFile, "/tmp/.config/quorvane/user-defaults.json");
    EXPECT_EQ(xdgCacheHome(lookup({{"XDG_CACHE_HOME", "/c"}, {"HOME", "/h"}})), "/c");
    EXPECT_EQ(xdgCacheHome(lookup({{"XDG_CACHE_HOME", ""}, {"HOME", "/h"}})), "/h/.cache");
    EXPECT_EQ(xdgConfigHome(lookup({})), "");

    ScopedTempDir scoped;
    const std::string before = UserDefaults::standard().path();
    useHostPaths({scoped.path(), scoped.path() + "/defaults.json"});
    EXPECT_EQ(temporaryDirectory(), scoped.path() + "/");
    UserDefaults::standard().set("a", 2);
    EXPECT_EQ(UserDefaults(scoped.path() + "/defaults.json").get("a"), 2);
    setTemporaryDirectory("");
    EXPECT_EQ(temporaryDirectory().back(), '/');
    EXPECT_NE(temporaryDirectory().find("/quorvane-"), std::string::npos);
    UserDefaults::setStandardPath(before);
}

TEST(TempFiles, AtomicWriteReplacesWholeFile) {
    ScopedTempDir scoped;
    const std::string path = scoped.path() + "/f.json";
    ASSERT_TRUE(writeFileAtomically(path, "first, longer content"));
    ASSERT_TRUE(writeFileAtomically(path, "second"));
    EXPECT_EQ(readFile(path), "second");
    EXPECT_FALSE(writeFileAtomically(scoped.path() + "/missing-dir/f", "x"));
    EXPECT_EQ(readFile(scoped.path() + "/missing"), std::nullopt);
}

// Each write replaces the file (a new inode); setting the value already held writes nothing.
TEST(UserDefaults, PersistsAcrossReloadRewritesOnlyOnChangeAndDiscardsACorruptStore) {
    ScopedTempDir dir;
    const std::string path = dir.path() + "/sub/defaults.json";
    auto inode = [&]() -> ino_t {
        struct stat st {};
        return ::stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
    };
    {
        UserDefaults d(path);
        d.set("ALIYUN_VOD_OBJECT_CACHE2", Value::array({Value{{"k", "v"}}}));
        d.set("list", Value::array({1, 2}));
        const auto first = inode();
        ASSERT_NE(first, 0u);
        d.set("list", Value::array({1, 2}));
        EXPECT_EQ(inode(), first);
        d.set("list", Value::array({1}));
        EXPECT_NE(inode(), first);
        d.set("gone", 1);
        d.remove("gone");
    }
    UserDefaults again(path);
    EXPECT_EQ(again.get("ALIYUN_VOD_OBJECT_CACHE2"), Value::array({Value{{"k", "v"}}}));
    EXPECT_EQ(again.get("list"), Value::array({1}));
    EXPECT_EQ(again.get("gone"), std::nullopt);

    std::ofstream(path, std::ios::trunc) << "{not json";
    LogCapture log;
    again.reload();
    EXPECT_EQ(again.get("ALIYUN_VOD_OBJECT_CACHE2"), std::nullopt);
    EXPECT_TRUE(log.contains("UserDefaults: discarding unreadable store"));
    again.set("fresh", "yes");  // the store is usable again and rewrites the file
    EXPECT_EQ(UserDefaults(path).get("fresh"), "yes");
}

TEST(Notification, DeliversByNameAndObserversMayRemoveThemselves) {
    NotificationCenter& center = NotificationCenter::defaultCenter();
    int first = 0, second = 0, other = 0;
    NotificationCenter::Token selfRemoving = 0;
    selfRemoving = center.addObserver("kNetWorkStatusReachabilityChangedNotification", [&](const std::string&, const Value&) {
        ++first;
        center.removeObserver(selfRemoving);
    });
    auto stays = center.addObserver("kNetWorkStatusReachabilityChangedNotification",
                                    [&](const std::string&, const Value& info) { second += info.value("n", 0); });
    auto elsewhere = center.addObserver("other", [&](const std::string&, const Value&) { ++other; });
    center.post("kNetWorkStatusReachabilityChangedNotification", Value{{"n", 5}});
    center.post("kNetWorkStatusReachabilityChangedNotification", Value{{"n", 5}});
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 10);
    EXPECT_EQ(other, 0);
    center.removeObserver(stays);
    center.removeObserver(elsewhere);
}
