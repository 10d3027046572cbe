// The client's parts without a socket: XML answers, error mapping, the upload record, tasks, progress
// and the log.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "foundation/log.h"
#include "foundation/temp_files.h"
#include "oss/crc64.h"
#include "oss/oss_body.h"
#include "oss/oss_checkpoint.h"
#include "oss/oss_error.h"
#include "oss/oss_local_file.h"
#include "oss/oss_log.h"
#include "oss/oss_progress.h"
#include "oss/oss_task.h"
#include "oss/oss_upload_record.h"
#include "oss/oss_xml.h"

using namespace quorvane;
using namespace quorvane::oss;

TEST(OSSXml, ServerErrorCarriesCodeAndMessageAsDetails) {
    foundation::HttpResponse response;
    response.status = 403;
    response.body = R"(<?xml version="1.0" encoding="UTF-8"?>
<Error xmlns="http://doc.oss-cn-hangzhou.aliyuncs.com"><Code>SecurityTokenExpired</Code>
<Message>The security token you provided has expired.</Message><RequestId>5C3D9175B6FC201293AD4890</RequestId>
<SecurityToken>CAIS...</SecurityToken></Error>)";
    auto error = makeServerError(response);
    EXPECT_EQ(error.domain, kOSSServerErrorDomain);
    EXPECT_EQ(error.code, -403);
    EXPECT_EQ(error.userInfo["Code"], "SecurityTokenExpired");
    EXPECT_EQ(error.userInfo["Message"], "The security token you provided has expired.");
    EXPECT_EQ(error.userInfo["RequestId"], "5C3D9175B6FC201293AD4890");

    foundation::HttpResponse head;  // HEAD errors come without a body
    head.status = 404;
    head.headers = {{"x-oss-request-id", "ABC"}};
    auto headError = makeServerError(head);
    EXPECT_EQ(headError.code, -404);
    EXPECT_FALSE(headError.userInfo.contains("Code"));
    EXPECT_EQ(headError.userInfo["RequestId"], "ABC");
}

TEST(OSSXml, TransportErrorsMapOntoCancelledAndNetworkCodes) {
    EXPECT_EQ(fromTransportError(Error(foundation::kHttpErrorDomain, foundation::kHttpErrorCancelled)).code,
              OSSClientErrorCodeTaskCancelled);
    auto reset = fromTransportError(Error(foundation::kHttpErrorDomain, 56, "curl_easy_perform: recv failure"));
    EXPECT_EQ(reset.code, OSSClientErrorCodeNetworkError);
    EXPECT_TRUE(isRetryableError(reset));
    EXPECT_TRUE(isRetryableError(Error(kOSSServerErrorDomain, -503)));
    EXPECT_FALSE(isRetryableError(Error(kOSSServerErrorDomain, -403)));
    EXPECT_FALSE(isRetryableError(makeClientError(OSSClientErrorCodeInvalidCRC, "x")));
}

TEST(OSSXml, ListPartsPagesAndMalformedAnswers) {
    auto page = xml::parseListParts(R"(<ListPartsResult><Bucket>b</Bucket><Key>k</Key><UploadId>U</UploadId>
<PartNumberMarker>0</PartNumberMarker><NextPartNumberMarker>2</NextPartNumberMarker><MaxParts>2</MaxParts>
<IsTruncated>true</IsTruncated>
<Part><PartNumber>1</PartNumber><ETag>"AB"</ETag><Size>102400</Size><HashCrc64ecma>18446744073709551615</HashCrc64ecma></Part>
<Part><PartNumber>2</PartNumber><ETag>"CD"</ETag><Size>5</Size></Part></ListPartsResult>)");
    ASSERT_TRUE(page);
    EXPECT_TRUE(page->isTruncated);
    EXPECT_EQ(page->nextPartNumberMarker, 2);
    ASSERT_EQ(page->parts.size(), 2u);
    EXPECT_EQ(page->parts[0].crc64, 18446744073709551615ULL);  // the full 64-bit range survives
    EXPECT_EQ(page->parts[1].eTag, "\"CD\"");
    EXPECT_FALSE(xml::parseListParts("<ListPartsResult><Part><PartNumber>x</PartNumber></Part></ListPartsResult>"));
    EXPECT_FALSE(xml::parseListParts("<Error/>"));
    EXPECT_FALSE(xml::parseListParts("not xml <"));
    EXPECT_EQ(xml::parseInitiateMultipartUpload("<InitiateMultipartUploadResult><UploadId>ID1</UploadId>"
                                                "</InitiateMultipartUploadResult>"),
              "ID1");
    EXPECT_FALSE(xml::parseInitiateMultipartUpload("<InitiateMultipartUploadResult/>"));
}

TEST(OSSXml, CompleteBodyListsPartsInOrderEscaped) {
    auto body = xml::buildCompleteMultipartUpload({{1, "\"A&B\"", 1, 0}, {3, "\"C\"", 1, 0}});
    EXPECT_NE(body.find("<Part><PartNumber>1</PartNumber><ETag>\"A&amp;B\"</ETag></Part>"
                        "<Part><PartNumber>3</PartNumber>"),
              std::string::npos)
        << body;
}

TEST(OSSCheckpoint, RoundTripsAndRejectsAnythingMalformedOrOutOfRange) {
    const std::string path = "/tmp/\xff\xfe-clip\x80.bin";  // not UTF-8: kept byte for byte all the same
    OSSUploadCheckpoint c{"http://h:1", "b", "k", path, "UP", {300000, 123456789012345LL, 123456789012399LL, 77, 2049}, 102400, {}};
    c.parts[1] = {1, "\"E\"", 102400, 42};
    c.parts[2] = {2, "\"E\"", 102400, 0xFFFFFFFFFFFFFFFFULL};
    std::string text;
    ASSERT_NO_THROW(text = serializeCheckpoint(c));
    auto back = parseCheckpoint(text);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->endpoint, "http://h:1");
    EXPECT_EQ(back->uploadId, "UP");
    EXPECT_EQ(back->filePath, path);
    EXPECT_EQ(back->file, c.file);
    ASSERT_EQ(back->parts.count(2), 1u);
    EXPECT_EQ(back->parts[2].crc64, 0xFFFFFFFFFFFFFFFFULL);
    auto replaced = [&](const std::string& from, const std::string& to) {
        auto t = text;
        auto at = t.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return t.replace(at, from.size(), to);
    };
    // Numbers that do not fit are refused, not converted.
    for (std::string bad : {std::string(""), std::string("{"), std::string("[]"), text.substr(0, text.size() / 2),
                            std::string(R"({"version":1})"), std::string(R"({"version":2})"),
                            replaced("\"size\":102400", "\"size\":\"big\""),
                            replaced("\"fileMtimeNs\":123456789012345", "\"fileMtimeNs\":3.4e112"),
                            replaced("\"fileSize\":300000", "\"fileSize\":-1"),
                            replaced("\"fileSize\":300000", "\"fileSize\":1e30"),
                            replaced("\"partNumber\":1", "\"partNumber\":4294967297"),
                            replaced("\"partSize\":102400", "\"partSize\":102400.5"),
                            replaced("\"crc64\":\"42\"", "\"crc64\":\"42abc\""),
                            replaced("\"crc64\":\"42\"", "\"crc64\":\"99999999999999999999999\"")})
        EXPECT_FALSE(parseCheckpoint(bad)) << bad;
    EXPECT_NE(checkpointFileName("http://h:1", "b", "k", "/a"), checkpointFileName("http://h:1", "b", "k", "/b"));
    EXPECT_NE(checkpointFileName("http://h:1", "b", "k", "/a"), checkpointFileName("http://h:2", "b", "k", "/a"));
}

// The question an upload asks before it begins: which recorded upload of this very file, if any, to
// continue.
TEST(OSSUploadRecord, IsContinuedOnlyForTheSameFilePartSizeAndTargetWithAnUploadId) {
    foundation::ScopedTempDir dir;
    const std::string path = dir.path() + "/data.bin", records = dir.path() + "/records";
    const char* kEndpoint = "http://127.0.0.1:9";
    const std::string service = checkpointEndpoint(*parseEndpoint(kEndpoint, false, nullptr));
    auto inspect = [&] {
        Error error;
        auto file = inspectLocalFile(path, &error);
        EXPECT_TRUE(file) << error.description;
        return file.value_or(OSSLocalFile{});
    };
    auto record = [&](const OSSLocalFile& file, const std::string& uploadId) {
        OSSUploadCheckpoint c{service, "bucket", "key", file.path, uploadId, file.state(), 1000, {}};
        c.parts[1] = OSSPartInfo{1, "\"e1\"", 1000, 1};
        c.parts[2] = OSSPartInfo{2, "\"e2\"", 1000, 2};
        std::filesystem::create_directories(records);
        std::ofstream(records + "/" + checkpointFileName(service, "bucket", "key", file.path)) << serializeCheckpoint(c);
    };
    std::ofstream(path, std::ios::binary) << std::string(3000, 'q');
    auto file = inspect();
    EXPECT_FALSE(recordedUpload(records, kEndpoint, "bucket", "key", file, 1000));  // no record yet
    record(file, "");
    EXPECT_FALSE(recordedUpload(records, kEndpoint, "bucket", "key", file, 1000));  // nothing to continue

    record(file, "U1");
    auto found = recordedUpload(records, kEndpoint, "bucket", "key", file, 1000);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->uploadId, "U1");
    EXPECT_EQ(found->bytesStored, 2000u);
    EXPECT_TRUE(recordedUpload(records, "HTTP://127.0.0.1:9/", "bucket", "key", file, 1000));  // same service
    EXPECT_FALSE(recordedUpload(records, kEndpoint, "bucket", "key", file, 2000));
    EXPECT_FALSE(recordedUpload(records, kEndpoint, "bucket", "other", file, 1000));
    EXPECT_FALSE(recordedUpload(records, "http://127.0.0.1:10", "bucket", "key", file, 1000));
    EXPECT_FALSE(recordedUpload("", kEndpoint, "bucket", "key", file, 1000));
    std::ofstream(path, std::ios::binary | std::ios::app) << "q";  // the file changed since its parts were sent
    EXPECT_FALSE(recordedUpload(records, kEndpoint, "bucket", "key", inspect(), 1000));

    OSSFileState state{3000, 1, 2, 3, 4}, touched = state;
    touched.ctimeNs += 1;
    OSSUploadCheckpoint c{"http://h:1", "b", "k", "/f", "U", state, 1000, {}};
    EXPECT_TRUE(recordFits(c, "http://h:1", "b", "k", "/f", state, 1000));
    EXPECT_FALSE(recordFits(c, "http://h:2", "b", "k", "/f", state, 1000));
    EXPECT_FALSE(recordFits(c, "http://h:1", "c", "k", "/f", state, 1000));
    EXPECT_FALSE(recordFits(c, "http://h:1", "b", "j", "/f", state, 1000));
    EXPECT_FALSE(recordFits(c, "http://h:1", "b", "k", "/g", state, 1000));
    EXPECT_FALSE(recordFits(c, "http://h:1", "b", "k", "/f", state, 1001));
    EXPECT_FALSE(recordFits(c, "http://h:1", "b", "k", "/f", touched, 1000));
}

TEST(OSSTask, ContinuationRunsOnceOnTheCompletingThreadAndChains) {
    auto task = OSSTask<int>::create();
    std::thread::id ranOn;
    int runs = 0;
    auto chained = task->continueWithBlock([&](const OSSTask<int>& t) {
        ++runs;
        ranOn = std::this_thread::get_id();
        EXPECT_EQ(*t.result(), 42);
    });
    std::thread::id producer;
    std::thread worker([&] {
        producer = std::this_thread::get_id();
        task->setResult(std::make_shared<int>(42));
        task->setError(Error("late", 1));  // ignored: the first outcome wins
    });
    chained->waitUntilFinished();
    worker.join();
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(ranOn, producer);
    EXPECT_FALSE(task->error());
    EXPECT_EQ(*chained->result(), 42);

    bool immediate = false;  // already finished: runs at once on the caller's thread
    task->continueWithBlock([&](const OSSTask<int>&) { immediate = std::this_thread::get_id() == ranOn; });
    EXPECT_FALSE(immediate);
    auto failed = OSSTask<int>::taskWithError(makeClientError(OSSClientErrorCodeTaskCancelled, "c"));
    EXPECT_TRUE(failed->isCancelled());
}

TEST(OSSProgress, NeverBackwardsNorPastTheTotalWhenAPartIsResent) {
    std::vector<std::int64_t> totals;
    std::int64_t sumOfDeltas = 0;
    OSSProgressTracker tracker(
        [&](std::int64_t now, std::int64_t total, std::int64_t expected) {
            EXPECT_EQ(expected, 1000);
            EXPECT_GT(now, 0);
            sumOfDeltas += now;
            totals.push_back(total);
        },
        1000, 200);
    tracker.update(1, 300);
    tracker.update(2, 100);
    tracker.update(1, 0);    // part 1 sent again from its start
    tracker.update(1, 250);  // still below what was shown: nothing reported
    tracker.finish(1, 400);
    tracker.finish(2, 400);
    tracker.update(3, 5000);  // more than expected is capped
    ASSERT_FALSE(totals.empty());
    for (std::size_t i = 1; i < totals.size(); ++i) EXPECT_GT(totals[i], totals[i - 1]);
    EXPECT_EQ(totals.back(), 1000);
    EXPECT_EQ(sumOfDeltas, 800);
}

TEST(OSSLog, LinesOnlyWhenSwitchedOn) {
    foundation::LogCapture capture;
    OSSLog::disableLog();
    OSSLog::logDebug("hidden");
    OSSLog::enableLog();
    OSSLog::logDebug("start called.");
    OSSLog::logError("oss client init success!");
    OSSLog::disableLog();
    EXPECT_EQ(capture.lines(), (std::vector<std::string>{"[Debug]: start called.", "[Error]: oss client init success!"}));
}

// A stored part is checked against its range of the local file: every byte of the range counts, the
// 1-byte last part of a file as much as a range longer than the read buffer, and a range past the end
// has no CRC at all.
TEST(OSSLocalFile, CrcOfARangeCoversEveryByteOfItAndNothingMore) {
    std::mt19937 random(20261127);
    std::string bytes(600 * 1024, '\0');
    for (auto& c : bytes) c = static_cast<char>(random());
    const std::string path = ::testing::TempDir() + "oss_crc_range.bin";
    std::ofstream(path, std::ios::binary) << bytes;
    auto crcOf = [&](std::size_t offset, std::size_t length) {
        return Crc64::update(0, bytes.data() + offset, length);
    };
    for (auto [offset, length] : {std::pair<std::size_t, std::size_t>{0, 1}, {bytes.size() - 1, 1}, {100, 256 * 1024 + 1},
                                  {0, bytes.size()}, {7, 0}}) {
        SCOPED_TRACE(std::to_string(offset) + "+" + std::to_string(length));
        EXPECT_EQ(crc64OfFileRange(path, offset, length), crcOf(offset, length));
    }
    EXPECT_EQ(crc64OfFileRange(path, bytes.size() - 1, 2), std::nullopt);
    EXPECT_EQ(crc64OfFileRange(path + ".gone", 0, 1), std::nullopt);
    std::filesystem::remove(path);
}

// A file URL names the path it encodes; anything else is a path already.
TEST(OSSLocalFile, AFileUrlNamesThePathItEncodes) {
    EXPECT_EQ(pathFromFileURL("file:///tmp/a%20b.mp4"), "/tmp/a b.mp4");
    EXPECT_EQ(pathFromFileURL("/tmp/file://x"), "/tmp/file://x");
}
