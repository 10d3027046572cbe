// The question an upload asks before it begins: which recorded upload of this very file, if any, to
// continue.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "foundation/temp_files.h"
#include "oss/oss_checkpoint.h"
#include "oss/oss_upload_record.h"

using namespace quorvane;
using namespace quorvane::oss;

namespace {

constexpr const char* kEndpoint = "http://127.0.0.1:9";

void writeBytes(const std::string& path, std::size_t count, std::ios::openmode mode = std::ios::trunc) {
    std::ofstream(path, std::ios::binary | mode) << std::string(count, 'q');
}

struct RecordedFile : ::testing::Test {
    foundation::ScopedTempDir dir;
    std::string path = dir.path() + "/data.bin";
    std::string records = dir.path() + "/records";
    std::string service = checkpointEndpoint(*parseEndpoint(kEndpoint, false, nullptr));

    OSSLocalFile inspect() {
        Error error;
        auto file = inspectLocalFile(path, &error);
        EXPECT_TRUE(file) << error.description;
        return file.value_or(OSSLocalFile{});
    }
    void record(const OSSLocalFile& file, const std::string& uploadId, std::int64_t partSize) {
        OSSUploadCheckpoint c{service, "bucket", "key", file.path, uploadId, file.state(), partSize, {}};
        c.parts[1] = OSSPartInfo{1, "\"e1\"", 1000, 1};
        c.parts[2] = OSSPartInfo{2, "\"e2\"", 1000, 2};
        std::filesystem::create_directories(records);
        std::ofstream(records + "/" + checkpointFileName(service, "bucket", "key", file.path)) << serializeCheckpoint(c);
    }
};

}  // namespace

TEST_F(RecordedFile, IsContinuedOnlyForTheSameFilePartSizeAndTarget) {
    writeBytes(path, 3000);
    auto file = inspect();
    EXPECT_FALSE(recordedUpload(records, kEndpoint, "bucket", "key", file, 1000));  // no record yet

    record(file, "U1", 1000);
    auto found = recordedUpload(records, kEndpoint, "bucket", "key", file, 1000);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->uploadId, "U1");
    EXPECT_EQ(found->bytesStored, 2000u);
    EXPECT_TRUE(recordedUpload(records, "HTTP://127.0.0.1:9/", "bucket", "key", file, 1000));  // same service

    EXPECT_FALSE(recordedUpload(records, kEndpoint, "bucket", "key", file, 2000));
    EXPECT_FALSE(recordedUpload(records, kEndpoint, "bucket", "other", file, 1000));
    EXPECT_FALSE(recordedUpload(records, "http://127.0.0.1:10", "bucket", "key", file, 1000));
    EXPECT_FALSE(recordedUpload("", kEndpoint, "bucket", "key", file, 1000));

    writeBytes(path, 1, std::ios::app);  // the file changed since its parts were sent
    EXPECT_FALSE(recordedUpload(records, kEndpoint, "bucket", "key", inspect(), 1000));
}

TEST_F(RecordedFile, WithoutAnUploadIdIsNotContinued) {
    writeBytes(path, 3000);
    auto file = inspect();
    record(file, "", 1000);
    EXPECT_FALSE(recordedUpload(records, kEndpoint, "bucket", "key", file, 1000));
}

TEST(RecordFits, EveryFieldCounts) {
    OSSFileState state{3000, 1, 2, 3, 4};
    OSSUploadCheckpoint c{"http://h:1", "b", "k", "/f", "U", state, 1000, {}};
    EXPECT_TRUE(recordFits(c, "http://h:1", "b", "k", "/f", state, 1000));
    EXPECT_FALSE(recordFits(c, "http://h:2", "b", "k", "/f", state, 1000));
    EXPECT_FALSE(recordFits(c, "http://h:1", "c", "k", "/f", state, 1000));
    EXPECT_FALSE(recordFits(c, "http://h:1", "b", "j", "/f", state, 1000));
    EXPECT_FALSE(recordFits(c, "http://h:1", "b", "k", "/g", state, 1000));
    EXPECT_FALSE(recordFits(c, "http://h:1", "b", "k", "/f", state, 1001));
    auto touched = state;
    touched.ctimeNs += 1;
    EXPECT_FALSE(recordFits(c, "http://h:1", "b", "k", "/f", touched, 1000));
}
