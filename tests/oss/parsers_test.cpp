// XML answers, error mapping and the upload record: pure functions over bytes.
#include <gtest/gtest.h>

#include "oss/oss_checkpoint.h"
#include "oss/oss_error.h"
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

TEST(OSSCheckpoint, RoundTripsAndRejectsAnythingMalformed) {
    OSSUploadCheckpoint c{"http://h:1", "b", "k", "/tmp/f", "UP", {300000, 123456789012345LL, 123456789012399LL, 77, 2049}, 102400, {}};
    c.parts[2] = {2, "\"E\"", 102400, 0xFFFFFFFFFFFFFFFFULL};
    auto text = serializeCheckpoint(c);
    auto back = parseCheckpoint(text);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->uploadId, "UP");
    EXPECT_EQ(back->file, c.file);
    ASSERT_EQ(back->parts.count(2), 1u);
    EXPECT_EQ(back->parts[2].crc64, 0xFFFFFFFFFFFFFFFFULL);
    for (std::string bad : {std::string(""), std::string("{"), std::string("[]"), text.substr(0, text.size() / 2),
                            std::string(R"({"version":1})"), std::string(R"({"version":2})")}) {
        EXPECT_FALSE(parseCheckpoint(bad)) << bad;
    }
    auto wrongType = text;
    wrongType.replace(wrongType.find("\"size\":102400"), 13, "\"size\":\"big\"");
    EXPECT_FALSE(parseCheckpoint(wrongType));
    EXPECT_EQ(back->endpoint, "http://h:1");
    EXPECT_NE(checkpointFileName("http://h:1", "b", "k", "/a"), checkpointFileName("http://h:1", "b", "k", "/b"));
    EXPECT_NE(checkpointFileName("http://h:1", "b", "k", "/a"), checkpointFileName("http://h:2", "b", "k", "/a"));
}

TEST(OSSCheckpoint, KeepsAFileNameThatIsNotUtf8ByteForByte) {
    const std::string path = "/tmp/\xff\xfe-clip\x80.bin";
    OSSUploadCheckpoint c{"http://h:1", "b", "k", path, "UP", {300000, 7, 8, 9, 10}, 102400, {}};
    std::string text;
    ASSERT_NO_THROW(text = serializeCheckpoint(c));
    auto back = parseCheckpoint(text);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->filePath, path);
}

TEST(OSSCheckpoint, RejectsNumbersThatDoNotFitInsteadOfConvertingThem) {
    OSSUploadCheckpoint c{"http://h:1", "b", "k", "/f", "UP", {300000, 7, 8, 9, 10}, 102400, {}};
    c.parts[1] = {1, "\"E\"", 102400, 42};
    const auto text = serializeCheckpoint(c);
    auto replaced = [&](const std::string& from, const std::string& to) {
        auto t = text;
        auto at = t.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return t.replace(at, from.size(), to);
    };
    ASSERT_TRUE(parseCheckpoint(text));
    for (auto bad : {replaced("\"fileMtimeNs\":7", "\"fileMtimeNs\":3.4e112"),
                     replaced("\"fileSize\":300000", "\"fileSize\":-1"),
                     replaced("\"fileSize\":300000", "\"fileSize\":1e30"),
                     replaced("\"partNumber\":1", "\"partNumber\":4294967297"),
                     replaced("\"partSize\":102400", "\"partSize\":102400.5"),
                     replaced("\"crc64\":\"42\"", "\"crc64\":\"42abc\""),
                     replaced("\"crc64\":\"42\"", "\"crc64\":\"99999999999999999999999\"")}) {
        EXPECT_FALSE(parseCheckpoint(bad)) << bad;
    }
}
