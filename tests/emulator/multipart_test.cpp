// Multipart uploads over loopback: the happy path, every refusal Complete knows, listing, persistence.
#include <filesystem>

#include "emulator_test_support.h"
#include "foundation/crc64.h"
#include "foundation/temp_files.h"

namespace quorvane::emulator {
namespace {

using namespace testing;

constexpr std::size_t kPart = 100 * 1024;

std::string bytes(std::size_t n, int seed) {
    std::string out(n, '\0');
    for (std::size_t i = 0; i < n; ++i) out[i] = static_cast<char>((i * 7 + seed * 13) & 0xFF);
    return out;
}

struct Multipart {
    httplib::Client& client;
    Key key;
    std::string bucket, object, uploadId;

    std::string resource(const std::string& sub) const { return "/" + bucket + "/" + object + sub; }

    void initiate() {
        auto res = client.Post(resource("?uploads"), signedHeaders(key, "POST", resource("?uploads"), "video/mp4"), "",
                               "video/mp4");
        ASSERT_EQ(outcome(res), "200");
        uploadId = xmlField(res->body, "UploadId");
        ASSERT_EQ(uploadId.size(), 32u);
    }
    httplib::Result part(int number, const std::string& body) {
        auto sub = "?partNumber=" + std::to_string(number) + "&uploadId=" + uploadId;
        return client.Put(resource(sub), signedHeaders(key, "PUT", resource(sub), "application/octet-stream"), body,
                          "application/octet-stream");
    }
    httplib::Result complete(const std::vector<std::pair<int, std::string>>& parts,
                             std::map<std::string, std::string> ossHeaders = {}) {
        std::string xml = "<CompleteMultipartUpload>";
        for (const auto& [n, etag] : parts)
            xml += "<Part><PartNumber>" + std::to_string(n) + "</PartNumber><ETag>" + etag + "</ETag></Part>";
        return completeRaw(xml + "</CompleteMultipartUpload>", ossHeaders);
    }
    std::string ofUpload() const { return resource("?uploadId=" + uploadId); }
    httplib::Result completeRaw(const std::string& xml, std::map<std::string, std::string> ossHeaders = {}) {
        auto headers = signedHeaders(key, "POST", ofUpload(), "application/xml", "", ossHeaders);
        return client.Post(ofUpload(), headers, xml, "application/xml");
    }
    httplib::Result list(const std::string& query) { return client.Get(ofUpload() + query, signedHeaders(key, "GET", ofUpload())); }
    httplib::Result abort() { return client.Delete(ofUpload(), signedHeaders(key, "DELETE", ofUpload())); }
};

// Uploads `bodies` as the parts of `object` and completes it.
void uploadWhole(Multipart& m, const std::vector<std::string>& bodies) {
    m.initiate();
    std::vector<std::pair<int, std::string>> list;
    for (std::size_t i = 0; i < bodies.size(); ++i) {
        auto res = m.part(static_cast<int>(i + 1), bodies[i]);
        ASSERT_EQ(res->status, 200) << res->body;
        list.emplace_back(static_cast<int>(i + 1), res->get_header_value("ETag"));
    }
    auto done = m.complete(list);
    ASSERT_EQ(done->status, 200) << done->body;
}

// GET whole, GET of ranges that start, end and cross inside the parts, and HEAD all agree with `whole`.
void expectReadsBack(httplib::Client& client, const Key& key, const std::string& resource, const std::string& whole) {
    auto got = client.Get(resource, signedHeaders(key, "GET", resource));
    ASSERT_EQ(outcome(got), "200");
    EXPECT_TRUE(got->body == whole) << "GET " << resource << " differs";
    EXPECT_EQ(got->get_header_value("x-oss-hash-crc64ecma"), std::to_string(foundation::Crc64::compute(whole)));
    const std::size_t n = whole.size();
    for (auto [first, last] : {std::pair<std::size_t, std::size_t>{0, 9}, {kPart - 3, kPart + 2},
                               {2 * kPart + 2, 2 * kPart + 10}, {n - 5, n - 1}, {10, n - 10}}) {
        auto headers = signedHeaders(key, "GET", resource);
        headers.emplace("Range", "bytes=" + std::to_string(first) + "-" + std::to_string(last));
        auto part = client.Get(resource, headers);
        ASSERT_EQ(outcome(part), "206");
        EXPECT_EQ(part->get_header_value("Content-Range"),
                  "bytes " + std::to_string(first) + "-" + std::to_string(last) + "/" + std::to_string(n));
        EXPECT_TRUE(part->body == whole.substr(first, last - first + 1)) << "range " << first << "-" << last;
    }
    auto head = client.Head(resource, signedHeaders(key, "HEAD", resource));
    ASSERT_TRUE(head);
    EXPECT_EQ(head->get_header_value("Content-Length"), std::to_string(n));
    EXPECT_EQ(head->get_header_value("x-oss-object-type"), "Multipart");
}

class MultipartTest : public CloudTest {
protected:
    Multipart upload(const std::string& object) { return Multipart{*client, root, bucket(), object, ""}; }
};

TEST_F(MultipartTest, CompletesWithCombinedCrcAndDecodedNotificationAndReadsBackAcrossParts) {
    auto m = upload("video/clip.mp4");
    m.initiate();
    std::vector<std::string> bodies = {bytes(kPart, 1), bytes(kPart + 5, 2), bytes(1234, 3)};
    std::vector<std::pair<int, std::string>> list;
    for (int i = 0; i < 3; ++i) {
        auto res = m.part(i + 1, bodies[i]);
        ASSERT_EQ(res->status, 200) << res->body;
        EXPECT_EQ(res->get_header_value("x-oss-hash-crc64ecma"), std::to_string(foundation::Crc64::compute(bodies[i])));
        list.emplace_back(i + 1, i == 1 ? res->get_header_value("ETag").substr(1, 32) : res->get_header_value("ETag"));
    }
    const std::string vodInfo = R"({"Title":"clip","CateId":19,"Tags":"sports"})";
    auto done = m.complete(list, {{"x-oss-notification", foundation::base64Encode(vodInfo)}});
    ASSERT_EQ(done->status, 200) << done->body;
    auto whole = bodies[0] + bodies[1] + bodies[2];
    EXPECT_EQ(done->get_header_value("x-oss-hash-crc64ecma"), std::to_string(foundation::Crc64::compute(whole)));
    EXPECT_EQ(xmlField(done->body, "Key"), "video/clip.mp4");
    EXPECT_EQ(cloud.objectBytes(bucket(), "video/clip.mp4"), whole);
    expectReadsBack(*client, root, m.resource(""), whole);
    auto info = cloud.object(bucket(), "video/clip.mp4");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->contentType, "video/mp4");
    EXPECT_EQ(info->partCount, 3);
    EXPECT_EQ(info->notification["CateId"], 19);
    EXPECT_EQ(info->etag.substr(info->etag.size() - 3), "-3\"");

    auto again = m.complete(list);
    EXPECT_EQ(outcome(again), "404 NoSuchUpload");
    EXPECT_EQ(xmlField(again->body, "UploadId"), m.uploadId);
    EXPECT_EQ(cloud.upload(m.uploadId)->state, UploadState::Completed);
}

TEST_F(MultipartTest, CompleteRefusesBadPartLists) {
    auto m = upload("bad.bin");
    m.initiate();
    auto e1 = m.part(1, bytes(10, 1))->get_header_value("ETag"), e2 = m.part(2, bytes(kPart, 2))->get_header_value("ETag"),
         e3 = m.part(3, bytes(10, 3))->get_header_value("ETag");

    EXPECT_EQ(xmlField(m.complete({{2, e2}, {1, e1}})->body, "Code"), "InvalidPartOrder");
    EXPECT_EQ(xmlField(m.complete({{2, e2}, {2, e2}})->body, "Code"), "InvalidPartOrder");
    EXPECT_EQ(xmlField(m.complete({{2, e3}})->body, "Code"), "InvalidPart");
    EXPECT_EQ(xmlField(m.complete({{2, e2}, {4, e3}})->body, "Code"), "InvalidPart");
    EXPECT_EQ(outcome(m.complete({{1, e1}, {2, e2}})), "400 EntityTooSmall");
    EXPECT_EQ(xmlField(m.completeRaw("<CompleteMultipartUpload><Part>")->body, "Code"), "MalformedXML");
    EXPECT_EQ(xmlField(m.part(10001, "x")->body, "Code"), "InvalidArgument");
    EXPECT_EQ(xmlField(m.part(0, "x")->body, "ArgumentName"), "partNumber");

    // Gaps are allowed and the last part may be small.
    EXPECT_EQ(m.complete({{2, e2}, {3, e3}})->status, 200);
    EXPECT_EQ(cloud.object(bucket(), "bad.bin")->size, kPart + 10);
}

TEST_F(MultipartTest, ListPartsPagesWithExclusiveMarkerAndAbortAnswers204ThenNoSuchUploadEverywhere) {
    auto m = upload("list.bin");
    m.initiate();
    for (int n : {1, 2, 3, 5, 8}) ASSERT_EQ(m.part(n, bytes(n, n))->status, 200);
    auto first = m.list("&max-parts=2");
    EXPECT_EQ(xmlField(first->body, "IsTruncated"), "true");
    EXPECT_EQ(xmlField(first->body, "NextPartNumberMarker"), "2");
    EXPECT_EQ(xmlField(first->body, "MaxParts"), "2");
    auto rest = m.list("&part-number-marker=3");
    EXPECT_EQ(xmlField(rest->body, "IsTruncated"), "false");
    EXPECT_EQ(xmlField(rest->body, "NextPartNumberMarker"), "8");
    pugi::xml_document doc;
    doc.load_string(rest->body.c_str());
    std::vector<std::string> numbers;
    for (auto p : doc.child("ListPartsResult").children("Part")) {
        numbers.push_back(p.child_value("PartNumber"));
        EXPECT_EQ(std::string(p.child_value("ETag")).front(), '"');
        EXPECT_EQ(std::string(p.child_value("LastModified")).substr(19), ".000Z");
    }
    EXPECT_EQ(numbers, (std::vector<std::string>{"5", "8"}));

    EXPECT_EQ(m.abort()->status, 204);
    EXPECT_EQ(xmlField(m.part(2, "abc")->body, "Code"), "NoSuchUpload");
    EXPECT_EQ(xmlField(m.list("")->body, "Code"), "NoSuchUpload");
    EXPECT_EQ(m.abort()->status, 404);
    EXPECT_EQ(m.complete({{1, "x"}})->status, 404);
    EXPECT_FALSE(cloud.object(bucket(), "list.bin"));
}

// Files under `dir` whose names end with `suffix`.
std::size_t filesEndingWith(const std::filesystem::path& dir, const std::string& suffix = "") {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir))
        if (entry.is_regular_file() && entry.path().string().ends_with(suffix)) ++count;
    return count;
}

// Across restarts: an open upload keeps its parts, a completed object its bytes, and overwrites leave no
// files behind.
TEST(MultipartPersistence, RestartedEmulatorKeepsObjectsUploadsAndPartsAndNoStaleFiles) {
    foundation::ScopedTempDir scratch;
    const std::filesystem::path dir = scratch.path();
    EmulatorOptions options;
    options.storageDir = scratch.path();
    const Key key{options.accessKeyId, options.accessKeySecret, ""};
    std::vector<std::string> bodies = {bytes(kPart, 7), bytes(kPart + 1, 8), bytes(kPart + 3, 9)};
    const auto whole = bodies[0] + bodies[1] + bodies[2];
    std::optional<ObjectInfo> stored;
    std::string uploadId;
    {
        CloudEmulator cloud(options);
        ASSERT_TRUE(cloud.start());
        httplib::Client client("127.0.0.1", cloud.port());
        Multipart open{client, key, options.bucket, "p.bin", ""};
        open.initiate();
        ASSERT_EQ(open.part(1, bytes(kPart, 1))->status, 200);
        uploadId = open.uploadId;
        ASSERT_TRUE(cloud.putObject(options.bucket, "kept.txt", "still here"));
        Multipart m{client, key, options.bucket, "movie.mp4", ""};
        uploadWhole(m, bodies);
        stored = cloud.object(options.bucket, "movie.mp4");
        expectReadsBack(client, key, m.resource(""), whole);
        // The parts were taken over, not left behind under the closed upload: only the open upload's part.
        EXPECT_EQ(filesEndingWith(dir / "uploads", ".data"), 1u);
    }
    {
        CloudEmulator cloud(options);
        ASSERT_TRUE(cloud.start());
        EXPECT_EQ(cloud.objectBytes(options.bucket, "kept.txt"), "still here");
        httplib::Client client("127.0.0.1", cloud.port());
        Multipart open{client, key, options.bucket, "p.bin", uploadId};
        EXPECT_EQ(xmlField(open.list("")->body, "NextPartNumberMarker"), "1");
        auto second = open.part(2, "end");
        auto first = cloud.upload(uploadId)->parts.at(0).etag;
        ASSERT_EQ(open.complete({{1, first}, {2, second->get_header_value("ETag")}})->status, 200);
        EXPECT_EQ(cloud.objectBytes(options.bucket, "p.bin"), bytes(kPart, 1) + "end");

        auto again = cloud.object(options.bucket, "movie.mp4");
        ASSERT_TRUE(again && stored);
        EXPECT_EQ(again->etag, stored->etag);
        EXPECT_EQ(again->crc64, stored->crc64);
        expectReadsBack(client, key, "/" + options.bucket + "/movie.mp4", whole);
        // Overwritten by a single put, then by a second multipart upload: only the last version's files stay.
        // Each version is its record and its data files.
        const auto others = filesEndingWith(dir / "buckets");
        ASSERT_TRUE(cloud.putObject(options.bucket, "movie.mp4", "short"));
        EXPECT_EQ(filesEndingWith(dir / "buckets"), others - 2);
        Multipart m{client, key, options.bucket, "movie.mp4", ""};
        uploadWhole(m, {bodies[2], bodies[1], bodies[0]});
        EXPECT_EQ(filesEndingWith(dir / "buckets"), others);
    }
    CloudEmulator cloud(options);
    ASSERT_TRUE(cloud.start());
    EXPECT_EQ(cloud.objectBytes(options.bucket, "movie.mp4"), bodies[2] + bodies[1] + bodies[0]);
}

}  // namespace
}  // namespace quorvane::emulator
