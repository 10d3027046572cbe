// A storage directory that refuses writes (a full disk, here a file-size limit) and records that cannot
// be written: the client gets an error, never a 200, and nothing half-written stays behind.
#include <signal.h>
#include <sys/resource.h>

#include <filesystem>

#include "emulator_test_support.h"
#include "foundation/temp_files.h"

namespace quorvane::emulator {
namespace {

using namespace testing;
namespace fs = std::filesystem;

// Files larger than `bytes` cannot be written while this lives: a write past it fails with EFBIG
// (SIGXFSZ, which would end the process, is ignored meanwhile).
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &saved_);
        previous_ = signal(SIGXFSZ, SIG_IGN);
        rlimit limit{bytes, saved_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &saved_);
        signal(SIGXFSZ, previous_);
    }

private:
    rlimit saved_{};
    sighandler_t previous_;
};

std::vector<std::string> filesUnder(const fs::path& dir) {
    std::vector<std::string> out;
    for (const auto& entry : fs::recursive_directory_iterator(dir))
        if (entry.is_regular_file()) out.push_back(fs::relative(entry.path(), dir).string());
    std::sort(out.begin(), out.end());
    return out;
}

// A fresh storage directory for each test's emulator, made before it and removed after it.
struct Scratch {
    foundation::ScopedTempDir scratch;
};

class FullDiskTest : private Scratch, public CloudTest {
protected:
    FullDiskTest() : CloudTest([this] { EmulatorOptions o; o.storageDir = scratch.path(); return o; }()) {}

    httplib::Result initiate(const std::string& key, std::map<std::string, std::string> ossHeaders = {}) {
        auto resource = path(key) + "?uploads";
        return client->Post(resource, signedHeaders(root, "POST", resource, "", "", ossHeaders), "", "");
    }
    httplib::Result putPart(const std::string& key, const std::string& uploadId, int number, const std::string& body) {
        auto resource = path(key) + "?partNumber=" + std::to_string(number) + "&uploadId=" + uploadId;
        const std::string type = "application/octet-stream";
        return client->Put(resource, signedHeaders(root, "PUT", resource, type), body, type);
    }

    const fs::path dir = scratch.path();
};

TEST_F(FullDiskTest, RefusedWritesAnswerAnErrorAndKeepWhatWasStored) {
    ASSERT_EQ(put("kept.bin", "old bytes")->status, 200);
    auto uploadId = xmlField(initiate("movie.mp4")->body, "UploadId");
    ASSERT_FALSE(uploadId.empty());
    ASSERT_EQ(putPart("movie.mp4", uploadId, 1, std::string(200, 'p'))->status, 200);
    const auto before = filesUnder(dir);
    {
        FileSizeLimit limit(1000);
        // Bodies that fit in the writer's buffer meet the limit only when it is flushed.
        for (const auto& key : {"kept.bin", "new.bin"})
            EXPECT_EQ(outcome(put(key, std::string(3000, 'n'))), "500 InternalError") << key;
        EXPECT_EQ(put("big.bin", std::string(3 << 20, 'b'))->status, 500);
        // The data fits, its record does not.
        EXPECT_EQ(put("noted.bin", "small", {{"x-oss-meta-note", std::string(1200, 'm')}})->status, 500);
        EXPECT_EQ(initiate("other.mp4", {{"x-oss-meta-note", std::string(1200, 'm')}})->status, 500);
        EXPECT_EQ(putPart("movie.mp4", uploadId, 2, std::string(3000, 'q'))->status, 500);
    }
    EXPECT_EQ(filesUnder(dir), before);
    EXPECT_EQ(cloud.objectBytes(bucket(), "kept.bin"), "old bytes");
    EXPECT_FALSE(cloud.object(bucket(), "new.bin"));
    ASSERT_EQ(cloud.upload(uploadId)->parts.size(), 1u);

    cloud.stop();  // what is on disk says the same
    CloudEmulator again(cloud.options());
    ASSERT_TRUE(again.start());
    EXPECT_EQ(again.objectBytes(bucket(), "kept.bin"), "old bytes");
    EXPECT_FALSE(again.object(bucket(), "new.bin"));
    EXPECT_FALSE(again.object(bucket(), "noted.bin"));
    EXPECT_EQ(again.upload(uploadId)->parts.size(), 1u);
}

TEST_F(FullDiskTest, NamesAndMetadataThatAreNotUtf8AreRefusedWithoutFiles) {
    const auto before = filesUnder(dir);
    EXPECT_EQ(outcome(put("bad-\xff-key", "body")), "400 InvalidObjectName");
    for (const char* value : {"\xc3", "\xc0\xaf", "\xed\xa0\x80", "caf\xe9"}) {
        EXPECT_EQ(outcome(put("meta.bin", "body", {{"x-oss-meta-note", value}})), "400 InvalidArgument") << value;
        EXPECT_EQ(initiate("meta.mp4", {{"x-oss-meta-note", value}})->status, 400);
    }
    EXPECT_EQ(filesUnder(dir), before);
    EXPECT_EQ(put("caf\xc3\xa9-\xe2\x82\xac.bin", "body", {{"x-oss-meta-note", "\xf0\x9f\x8e\xac"}})->status, 200);
}

}  // namespace
}  // namespace quorvane::emulator
