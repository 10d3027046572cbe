// Requests other than plain uploads and reads, over loopback: whatever the emulator does not serve
// answers 501 and leaves stored data alone; copies, ACLs, tags and bucket facts where it does.
#include <thread>

#include "emulator_test_support.h"
#include "foundation/crc64.h"
#include "foundation/temp_files.h"

namespace quorvane::emulator {
namespace {

using namespace testing;

const std::string kBody = "the stored bytes that nothing here may change";

class NotImplementedTest : public CloudTest {
protected:
    // The selection of operations is under test, not the signatures.
    NotImplementedTest() : CloudTest([] { EmulatorOptions o; o.verifySignatures = false; return o; }()) {}
    httplib::Result send(const std::string& method, const std::string& target, httplib::Headers headers = {}) {
        httplib::Request req;
        req.method = method;
        req.path = target;
        req.headers = std::move(headers);
        if (method == "PUT" || method == "POST") {
            req.body = "replacement bytes";
            req.set_header("Content-Type", "application/octet-stream");
        }
        return client->send(req);
    }
    void expectIntact(const std::string& what) {
        auto stored = cloud.object(bucket(), "keep.bin");
        ASSERT_TRUE(stored) << what;
        EXPECT_EQ(cloud.objectBytes(bucket(), "keep.bin"), kBody) << what;
        EXPECT_EQ(stored->crc64, foundation::Crc64::compute(kBody)) << what;
        EXPECT_EQ(stored->acl, "default") << what;
        EXPECT_EQ(cloud.objects().size(), 1u) << what;
    }
};

TEST_F(NotImplementedTest, EverySubResourceAndSelectingHeaderIsServedOrRefusedWithoutChangingData) {
    ASSERT_TRUE(cloud.putObject(bucket(), "keep.bin", kBody));
    const std::vector<std::string> subResources = {
        "acl", "tagging", "symlink", "restore", "append&position=0", "uploads", "uploadId=0004B9894A22E5B1",
        "partNumber=1", "uploadId=0004B9894A22E5B1&partNumber=1", "delete", "location", "bucketInfo", "cors",
        "lifecycle", "website", "referer", "logging", "versioning", "versions", "versionId=CAEQ", "objectMeta",
        "x-oss-process=image/resize,w_10", "x-oss-process=csv/select", "select", "seal", "policy", "encryption",
        "inventory", "worm", "replication", "requestPayment", "transferAcceleration", "stat", "qos", "cname",
        "live", "img", "style", "comp=query", "callback=e30=", "metaQuery", "resourceGroup", "sequential",
        "continuation-token=abc", "response-content-type=text/plain"};
    // What the served operations answer for these requests; everything else must be 501.
    const std::map<std::string, int> served = {
        {"PUT ?acl", 400} /* no x-oss-object-acl header */, {"PUT ?tagging", 400} /* no Tagging document */,
        {"GET ?acl", 200}, {"GET ?tagging", 200}, {"DELETE ?tagging", 204},
        {"PUT ?uploadId=0004B9894A22E5B1", 400} /* no part number */, {"PUT ?partNumber=1", 404} /* NoSuchUpload */,
        {"PUT ?uploadId=0004B9894A22E5B1&partNumber=1", 404}, {"GET ?uploadId=0004B9894A22E5B1", 404},
        {"POST ?uploadId=0004B9894A22E5B1", 404}, {"DELETE ?uploadId=0004B9894A22E5B1", 404}, {"POST ?uploads", 200},
        {"GET ?response-content-type=text/plain", 200}, {"HEAD ?response-content-type=text/plain", 200},
        {"HEAD ?objectMeta", 200}, {"bucket GET ?uploads", 200}, {"bucket GET ?location", 200},
        {"bucket GET ?bucketInfo", 200}, {"bucket POST ?delete", 400} /* no Content-MD5 */,
    };
    int refused = 0;
    for (const std::string method : {"PUT", "GET", "HEAD", "POST", "DELETE"}) {
        for (const auto& sub : subResources) {
            for (bool onBucket : {false, true}) {
                auto name = std::string(onBucket ? "bucket " : "") + method + " ?" + sub;
                auto res = send(method, (onBucket ? "/" + bucket() + "/" : path("keep.bin")) + "?" + sub);
                ASSERT_TRUE(res) << name;
                auto expected = served.find(name);
                if (expected != served.end()) {
                    EXPECT_EQ(res->status, expected->second) << name << "\n" << res->body;
                } else {
                    EXPECT_EQ(res->status, 501) << name << "\n" << res->body;
                    if (method != "HEAD") {
                        EXPECT_EQ(xmlField(res->body, "Code"), "NotImplemented") << name;
                        EXPECT_NE(xmlField(res->body, "Message").find("is not implemented"), std::string::npos);
                    }
                    ++refused;
                }
                expectIntact(name);
            }
        }
    }
    EXPECT_GT(refused, 400);
    auto message = xmlField(send("PUT", path("keep.bin") + "?symlink")->body, "Message");
    EXPECT_NE(message.find("PutSymlink"), std::string::npos) << message;

    // Headers that make a PUT something else than an upload.
    auto copyPart = send("PUT", path("keep.bin") + "?uploadId=0004B9894A22E5B1&partNumber=1",
                         {{"x-oss-copy-source", "/" + bucket() + "/keep.bin"}});
    EXPECT_EQ(copyPart->status, 501);
    EXPECT_NE(xmlField(copyPart->body, "Message").find("UploadPartCopy"), std::string::npos);
    EXPECT_EQ(send("PUT", path("keep.bin"), {{"x-oss-copy-source", "/" + bucket() + "/absent"}})->status, 404);
    EXPECT_EQ(send("PUT", path("keep.bin"), {{"x-oss-forbid-overwrite", "true"}})->status, 409);
    EXPECT_EQ(send("PUT", path("keep.bin"), {{"x-oss-object-acl", "everyone"}})->status, 400);
    expectIntact("selecting headers");
    EXPECT_EQ(send("PUT", path("keep.bin"), {{"x-oss-copy-source", "/" + bucket() + "/keep.bin"}})->status, 200);
    expectIntact("copy onto itself");

    // Whole-bucket and service-wide requests not served.
    for (const auto& [method, target] : std::vector<std::pair<std::string, std::string>>{
             {"DELETE", "/" + bucket() + "/"}, {"POST", "/" + bucket() + "/"}, {"PUT", "/"}, {"DELETE", "/"}}) {
        EXPECT_EQ(send(method, target)->status, 501) << method << " " << target;
    }
    expectIntact("bucket requests");
}

class ObjectAdminTest : public CloudTest {
protected:
    httplib::Result signedGet(const std::string& target, const std::string& sub) {
        return client->Get(target + sub, signedHeaders(root, "GET", target + sub));
    }
    httplib::Result copy(const std::string& to, const std::string& source, std::map<std::string, std::string> oss,
                         const std::string& type = "") {
        oss["x-oss-copy-source"] = source;
        return client->Put(path(to), signedHeaders(root, "PUT", path(to), type, "", oss), "", type.c_str());
    }
};

TEST_F(ObjectAdminTest, CopyKeepsBytesAndCrcAndReplacesMetadataOnRequest) {
    const std::string body(300 * 1024, 'q');
    ASSERT_EQ(put("src dir/a+b.bin", body, {{"x-oss-meta-origin", "first"}, {"x-oss-tagging", "k=v"}})->status, 200);
    auto src = cloud.object(bucket(), "src dir/a+b.bin");

    // The source named percent-encoded, as clients send it (and sign it).
    auto kept = copy("kept.bin", "/" + bucket() + "/src%20dir%2Fa%2Bb.bin", {});
    ASSERT_EQ(kept->status, 200) << kept->body;
    EXPECT_EQ(xmlField(kept->body, "ETag"), src->etag);
    EXPECT_FALSE(xmlField(kept->body, "LastModified").empty());
    EXPECT_EQ(kept->get_header_value("x-oss-hash-crc64ecma"), std::to_string(src->crc64));
    auto keptInfo = cloud.object(bucket(), "kept.bin");
    EXPECT_EQ(keptInfo->metadata.at("x-oss-meta-origin"), "first");
    EXPECT_EQ(keptInfo->tags, src->tags);

    auto replaced = copy("replaced.txt", "/" + bucket() + "/src%20dir%2Fa%2Bb.bin",
                         {{"x-oss-metadata-directive", "REPLACE"}, {"x-oss-meta-owner", "second"},
                          {"x-oss-tagging-directive", "Replace"}, {"x-oss-object-acl", "private"}},
                         "text/plain");
    ASSERT_EQ(replaced->status, 200) << replaced->body;
    auto info = cloud.object(bucket(), "replaced.txt");
    EXPECT_EQ(info->metadata, (std::map<std::string, std::string>{{"x-oss-meta-owner", "second"}}));
    EXPECT_EQ(info->contentType, "text/plain");
    EXPECT_TRUE(info->tags.empty());
    EXPECT_EQ(info->acl, "private");
    EXPECT_EQ(info->crc64, src->crc64);

    cloud.createBucket("other-bucket");
    auto headers = signedHeaders(root, "PUT", "/other-bucket/x.bin", "", "",
                                 {{"x-oss-copy-source", "/" + bucket() + "/kept.bin"}});
    EXPECT_EQ(client->Put("/other-bucket/x.bin", headers, "", "")->status, 200);
    EXPECT_EQ(cloud.objectBytes("other-bucket", "x.bin"), body);

    EXPECT_EQ(xmlField(copy("y", "/" + bucket() + "/kept.bin", {{"x-oss-metadata-directive", "MOVE"}})->body, "Code"),
              "InvalidArgument");
    EXPECT_EQ(copy("y", "/" + bucket() + "/kept.bin", {{"x-oss-copy-source-if-match", "\"0000\""}})->status, 412);
    EXPECT_EQ(xmlField(copy("y", "/no-such-bucket/kept.bin", {})->body, "Code"), "NoSuchBucket");
    EXPECT_FALSE(cloud.object(bucket(), "y"));
}

TEST(ObjectAdminStorage, CopiesOwnTheirBytesAndBucketsTheirCreationTimeAcrossRestarts) {
    foundation::ScopedTempDir dir;
    EmulatorOptions options;
    options.storageDir = dir.path();
    options.verifySignatures = false;
    auto created = [&](const CloudEmulator& cloud) {
        httplib::Client client("127.0.0.1", cloud.port());
        pugi::xml_document doc;
        doc.load_string(client.Get("/" + options.bucket + "/?bucketInfo")->body.c_str());
        return std::string(doc.child("BucketInfo").child("Bucket").child_value("CreationDate"));
    };
    std::string createdFirst;
    {
        CloudEmulator cloud(options);
        ASSERT_TRUE(cloud.start());
        createdFirst = created(cloud);
        httplib::Client client("127.0.0.1", cloud.port());
        ASSERT_TRUE(cloud.putObject(options.bucket, "src", kBody));
        auto target = "/" + options.bucket + "/copy";
        ASSERT_EQ(client.Put(target, {{"x-oss-copy-source", "/" + options.bucket + "/src"}}, "", "")->status, 200);
        EXPECT_EQ(client.Delete("/" + options.bucket + "/src")->status, 204);
        EXPECT_EQ(client.Put(target + "?tagging", "<Tagging><TagSet><Tag><Key>a</Key><Value>1</Value></Tag></TagSet></Tagging>",
                             "application/xml")->status, 200);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));  // a restart in another second
    CloudEmulator restarted(options);
    ASSERT_TRUE(restarted.start());
    EXPECT_FALSE(restarted.object(options.bucket, "src"));
    EXPECT_EQ(created(restarted), createdFirst);
    EXPECT_EQ(restarted.objectBytes(options.bucket, "copy"), kBody);
    EXPECT_EQ(restarted.object(options.bucket, "copy")->tags, (std::vector<std::pair<std::string, std::string>>{{"a", "1"}}));
}

TEST_F(ObjectAdminTest, AclAndTagsAreStoredBesideTheObjectAndCheckedAgainstTheLimits) {
    ASSERT_EQ(put("doc.txt", kBody, {{"x-oss-object-acl", "public-read"}, {"x-oss-tagging", "a=1&b=two"}})->status, 200);
    auto acl = signedGet(path("doc.txt"), "?acl");
    EXPECT_EQ(pugi::xml_document().load_string(acl->body.c_str()).status, pugi::status_ok);
    EXPECT_NE(acl->body.find("<Grant>public-read</Grant>"), std::string::npos) << acl->body;
    EXPECT_EQ(signedGet(path("doc.txt"), "")->get_header_value("x-oss-tagging-count"), "2");

    auto putAcl = [&](const std::string& value) {
        return client->Put(path("doc.txt") + "?acl",
                           signedHeaders(root, "PUT", path("doc.txt") + "?acl", "", "", {{"x-oss-object-acl", value}}), "", "");
    };
    EXPECT_EQ(putAcl("private")->status, 200);
    EXPECT_EQ(cloud.object(bucket(), "doc.txt")->acl, "private");
    EXPECT_EQ(xmlField(putAcl("world-writable")->body, "Code"), "InvalidArgument");

    auto putTags = [&](int count) {
        std::string xml = "<Tagging><TagSet>";
        for (int i = 0; i < count; ++i)
            xml += "<Tag><Key>k" + std::to_string(i) + "</Key><Value>v &amp; w</Value></Tag>";
        xml += "</TagSet></Tagging>";
        return client->Put(path("doc.txt") + "?tagging",
                           signedHeaders(root, "PUT", path("doc.txt") + "?tagging", "application/xml"), xml,
                           "application/xml");
    };
    EXPECT_EQ(putTags(10)->status, 200);
    EXPECT_EQ(putTags(11)->status, 400);
    auto tags = cloud.object(bucket(), "doc.txt")->tags;
    ASSERT_EQ(tags.size(), 10u);
    EXPECT_EQ(tags[3], (std::pair<std::string, std::string>{"k3", "v & w"}));
    auto got = signedGet(path("doc.txt"), "?tagging");
    EXPECT_NE(got->body.find("<Key>k9</Key>"), std::string::npos);
    EXPECT_EQ(client->Delete(path("doc.txt") + "?tagging", signedHeaders(root, "DELETE", path("doc.txt") + "?tagging"))
                  ->status, 204);
    EXPECT_TRUE(cloud.object(bucket(), "doc.txt")->tags.empty());
    EXPECT_EQ(cloud.objectBytes(bucket(), "doc.txt"), kBody);
    EXPECT_EQ(signedGet(path("absent"), "?acl")->status, 404);
}

TEST_F(ObjectAdminTest, BucketFactsAndBucketList) {
    auto base = "/" + bucket() + "/";
    auto info = signedGet(base, "?bucketInfo");
    ASSERT_EQ(info->status, 200) << info->body;
    pugi::xml_document doc;
    doc.load_string(info->body.c_str());
    auto facts = doc.child("BucketInfo").child("Bucket");
    EXPECT_STREQ(facts.child_value("Name"), bucket().c_str());
    EXPECT_STREQ(facts.child_value("Location"), "oss-cn-shanghai");
    EXPECT_EQ(std::string(facts.child_value("CreationDate")).size(), 24u);
    EXPECT_NE(signedGet(base, "?location")->body.find(">oss-cn-shanghai</LocationConstraint>"), std::string::npos);

    EXPECT_EQ(client->Head(base, signedHeaders(root, "HEAD", base))->status, 200);
    EXPECT_EQ(client->Head("/absent-bucket/", signedHeaders(root, "HEAD", "/absent-bucket/"))->status, 404);
    EXPECT_EQ(xmlField(signedGet("/absent-bucket/", "?bucketInfo")->body, "Code"), "NoSuchBucket");

    cloud.createBucket("zz-last");
    auto all = client->Get("/", signedHeaders(root, "GET", "/"));
    ASSERT_EQ(all->status, 200) << all->body;
    EXPECT_NE(all->body.find("<Name>zz-last</Name>"), std::string::npos);
    auto paged = client->Get("/?max-keys=1", signedHeaders(root, "GET", "/"));
    EXPECT_NE(paged->body.find("<NextMarker>" + bucket() + "</NextMarker>"), std::string::npos) << paged->body;
}

}  // namespace
}  // namespace quorvane::emulator
