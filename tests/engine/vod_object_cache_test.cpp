#include <gtest/gtest.h>

#include <thread>

#include "VODUpload/src/VODObjectCache.h"
#include "engine_test_support.h"

using quorvane::Value;
using quorvane::VODObject;
using quorvane::VODObjectCache;
using quorvane::foundation::UserDefaults;
using quorvane::test::TempDir;

namespace {

struct ResumeCache : ::testing::Test {
    TempDir dir;
    UserDefaults store{dir.file("defaults.json")};

    std::string file(const std::string& name, std::size_t size = 10) {
        std::string path = dir.file(name);
        quorvane::test::writeFile(path, std::string(size, 'v'));
        return path;
    }
    static std::shared_ptr<VODObject> record(const std::string& object, const std::string& videoId = "") {
        auto o = std::make_shared<VODObject>();
        o->object = object;
        o->videoId = videoId;
        return o;
    }
    Value stored() { return store.get(VODObjectCache::kDefaultsKey).value_or(Value()); }
};

}  // namespace

TEST_F(ResumeCache, KeepsTheFiftyNewestAndANewProcessReadsThemBack) {
    VODObjectCache cache(store);
    for (int i = 0; i < 51; ++i)
        cache.saveObject(record("obj" + std::to_string(i), "vid-" + std::to_string(i)),
                         file("f" + std::to_string(i) + ".mp4", 10 + i));
    auto list = cache.objects();
    ASSERT_EQ(list.size(), 50u);
    EXPECT_EQ(list.front()->object, "obj1");
    EXPECT_EQ(list.back()->object, "obj50");
    Value persisted = stored();
    ASSERT_EQ(persisted.size(), 50u);
    EXPECT_EQ(persisted[0], (Value{{"key", list.front()->key}, {"object", "obj1"}, {"videoId", "vid-1"}}));

    UserDefaults reopened(store.path());  // as a new process would
    VODObjectCache again(reopened);
    auto o = again.getObjectWithPath(dir.file("f50.mp4"));
    ASSERT_TRUE(o);
    EXPECT_EQ(o->object, "obj50");
    EXPECT_EQ(o->videoId, "vid-50");
}

// An unknown path gives an unlisted record with its key only; once other instances were appended, the
// lookup gives the same (oldest) one.
TEST_F(ResumeCache, LookupGivesAnUnlistedRecordOrTheOldestSaved) {
    VODObjectCache cache(store);
    std::string path = file("clip.mp4");
    auto o = cache.getObjectWithPath(path);
    ASSERT_TRUE(o);
    EXPECT_EQ(o->key, VODObjectCache::uniqueIdWithFilePath(path));
    EXPECT_EQ(o->object, "");
    EXPECT_TRUE(cache.objects().empty());
    EXPECT_FALSE(store.get(VODObjectCache::kDefaultsKey).has_value());
    EXPECT_EQ(cache.getObjectWithPath(""), nullptr);

    auto first = record("first");
    cache.saveObject(first, path);
    cache.saveObject(first, path);
    cache.saveObject(record("second"), path);
    EXPECT_EQ(cache.objects().size(), 2u);
    EXPECT_EQ(cache.getObjectWithPath(path), first);

    cache.clearObjectWithPath(path);
    EXPECT_EQ(cache.getObjectWithPath(path)->object, "second");
}

TEST_F(ResumeCache, DisabledCacheNeitherFindsNorSavesButStillClears) {
    VODObjectCache cache(store);
    std::string path = file("clip.mp4");
    cache.saveObject(record("kept"), path);
    cache.setEnabled(false);
    EXPECT_EQ(cache.getObjectWithPath(path), nullptr);
    cache.saveObject(record("ignored"), file("other.mp4"));
    EXPECT_EQ(cache.objects().size(), 1u);
    cache.clearObjectWithPath(path);
    EXPECT_TRUE(cache.objects().empty());
    EXPECT_EQ(stored(), Value::array());
}

TEST_F(ResumeCache, DamagedStoreLoadsWhatItCan) {
    store.set(VODObjectCache::kDefaultsKey, Value::parse(R"([{"key":"k","object":7}, "junk", {"videoId":"v"}])"));
    VODObjectCache cache(store);
    auto list = cache.objects();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0]->key, "k");
    EXPECT_EQ(list[0]->object, "");
    EXPECT_EQ(list[1]->videoId, "v");

    store.set(VODObjectCache::kDefaultsKey, Value("not a list"));
    VODObjectCache fromText(store);
    EXPECT_TRUE(fromText.objects().empty());
}

TEST_F(ResumeCache, ConcurrentSavesLookupsAndClearsStayConsistent) {
    VODObjectCache cache(store);
    std::vector<std::string> paths;
    for (int i = 0; i < 8; ++i) paths.push_back(file("c" + std::to_string(i) + ".mp4", 100 + i));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 40; ++i) {
                const std::string& path = paths[(t * 2 + i) % paths.size()];
                cache.saveObject(record("t" + std::to_string(t)), path);
                auto found = cache.getObjectWithPath(path);
                EXPECT_TRUE(found);
                if (i % 5 == 4) cache.clearObjectWithPath(path);
            }
        });
    }
    for (auto& th : threads) th.join();
    EXPECT_LE(cache.objects().size(), VODObjectCache::kMaxObjects);
    UserDefaults reopened(store.path());
    VODObjectCache reloaded(reopened);
    ASSERT_EQ(reloaded.objects().size(), cache.objects().size());
    for (std::size_t i = 0; i < reloaded.objects().size(); ++i)
        EXPECT_EQ(reloaded.objects()[i]->key, cache.objects()[i]->key);
}
