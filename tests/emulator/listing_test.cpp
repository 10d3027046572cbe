// Listing and deleting over loopback: grouping by delimiter, paging across more than 1000 keys, keys that
// need encoding, multipart uploads in progress, single and multiple deletes.
#include <algorithm>
#include <random>
#include <set>

#include "emulator_test_support.h"
#include "foundation/http_client.h"

namespace quorvane::emulator {
namespace {

using namespace testing;

// Written apart from the emulator's encoder.
std::string pct(const std::string& s) { return foundation::urlEncode(s); }

struct Listing {
    std::vector<std::string> keys, prefixes;
    std::string truncated;
    pugi::xml_document doc;
    std::string text(const char* name) const { return doc.first_child().child_value(name); }
};

class ListingTest : public CloudTest {
protected:
    // A signed GET on the bucket; `query` pairs are encoded here, `signedSub` is the V1 sub-resource part.
    httplib::Result bucketRequest(const std::string& method, const std::vector<std::pair<std::string, std::string>>& query,
                                  const std::string& signedSub = "", const std::string& body = "",
                                  const std::string& md5 = "") {
        std::string q;
        for (const auto& [k, v] : query) q += (q.empty() ? "?" : "&") + pct(k) + (v.empty() ? "" : "=" + pct(v));
        auto target = "/" + bucket() + "/" + q;
        auto resource = "/" + bucket() + "/" + signedSub;
        const std::string type = body.empty() ? "" : "application/xml";
        auto headers = signedHeaders(root, method, resource, type, md5);
        if (method == "GET") return client->Get(target, headers);
        return client->Post(target, headers, body, type);
    }
    std::unique_ptr<Listing> list(const std::vector<std::pair<std::string, std::string>>& query,
                                  const std::string& signedSub = "") {
        auto res = bucketRequest("GET", query, signedSub);
        EXPECT_TRUE(res);
        if (!res) return nullptr;
        EXPECT_EQ(res->status, 200) << res->body;
        auto out = std::make_unique<Listing>();
        out->doc.load_string(res->body.c_str());
        auto top = out->doc.first_child();
        for (auto c : top.children("Contents")) out->keys.emplace_back(c.child_value("Key"));
        for (auto c : top.children("Upload")) out->keys.emplace_back(c.child_value("Key"));
        for (auto c : top.children("CommonPrefixes")) out->prefixes.emplace_back(c.child_value("Prefix"));
        out->truncated = top.child_value("IsTruncated");
        return out;
    }
    void seed(const std::vector<std::string>& keys) {
        for (const auto& k : keys) ASSERT_TRUE(cloud.putObject(bucket(), k, "body of " + k));
    }
};

using Keys = std::vector<std::string>;

TEST_F(ListingTest, DelimiterRollsKeysUpIntoCommonPrefixesAndPagesAcrossThem) {
    seed({"a.txt", "dir/1", "dir/2", "dir/sub/3", "dir//x", "e/f", "z"});
    auto top = list({{"delimiter", "/"}});
    EXPECT_EQ(top->keys, (Keys{"a.txt", "z"}));
    EXPECT_EQ(top->prefixes, (Keys{"dir/", "e/"}));
    EXPECT_EQ(top->text("MaxKeys"), "100");
    EXPECT_EQ(top->truncated, "false");

    auto dir = list({{"list-type", "2"}, {"prefix", "dir/"}, {"delimiter", "/"}});
    EXPECT_EQ(dir->keys, (Keys{"dir/1", "dir/2"}));
    EXPECT_EQ(dir->prefixes, (Keys{"dir//", "dir/sub/"}));
    EXPECT_EQ(dir->text("KeyCount"), "4");
    EXPECT_EQ(list({{"prefix", "dir/s"}})->keys, (Keys{"dir/sub/3"}));

    // Two entries a page: a common prefix given as the marker skips its whole group.
    auto first = list({{"delimiter", "/"}, {"max-keys", "2"}});
    EXPECT_EQ(first->truncated, "true");
    EXPECT_EQ(first->text("NextMarker"), "dir/");
    auto second = list({{"delimiter", "/"}, {"max-keys", "2"}, {"marker", "dir/"}});
    EXPECT_EQ(second->prefixes, (Keys{"e/"}));
    EXPECT_EQ(second->keys, (Keys{"z"}));
    EXPECT_EQ(second->truncated, "false");

    for (const char* bad : {"0", "1001", "ten"})
        EXPECT_EQ(xmlField(bucketRequest("GET", {{"max-keys", bad}})->body, "Code"), "InvalidArgument") << bad;
}

TEST_F(ListingTest, PagesWithMarkerAndContinuationTokenCoverEveryKeyOnce) {
    std::mt19937 random(20261125);
    std::set<std::string> all;
    while (all.size() < 1234) {
        std::string key = "k/" + std::to_string(random() % 50) + "/" + std::to_string(random());
        all.insert(key);
    }
    seed(Keys(all.begin(), all.end()));
    ASSERT_TRUE(cloud.putObject(bucket(), "other", "x"));  // outside the prefix

    Keys v1;
    std::string marker;
    int pages = 0;
    for (std::string truncated = "true"; truncated == "true"; ++pages) {
        auto page = list({{"prefix", "k/"}, {"marker", marker}});
        ASSERT_LE(page->keys.size(), 100u);
        v1.insert(v1.end(), page->keys.begin(), page->keys.end());
        truncated = page->truncated;
        marker = page->text("NextMarker");
    }
    EXPECT_EQ(pages, 13);
    EXPECT_EQ(v1, Keys(all.begin(), all.end()));

    Keys v2;
    std::vector<std::pair<std::string, std::string>> query = {{"list-type", "2"}, {"prefix", "k/"}, {"max-keys", "1000"}};
    for (pages = 0; pages < 5; ++pages) {
        auto page = list(query, query.size() > 3 ? "?continuation-token=" + query.back().second : "");
        v2.insert(v2.end(), page->keys.begin(), page->keys.end());
        EXPECT_EQ(page->text("KeyCount"), std::to_string(page->keys.size()));
        if (page->truncated != "true") break;
        query.resize(3);
        query.emplace_back("continuation-token", page->text("NextContinuationToken"));
    }
    EXPECT_EQ(pages, 1);
    EXPECT_EQ(v2, Keys(all.begin(), all.end()));

    // start-after, and owners only on request.
    auto after = list({{"list-type", "2"}, {"start-after", *std::next(all.begin(), 1200)}, {"fetch-owner", "true"}});
    EXPECT_EQ(after->keys.size(), 34u);  // 33 keys and "other"
    EXPECT_TRUE(after->doc.first_child().child("Contents").child("Owner"));
    EXPECT_FALSE(list({{"list-type", "2"}})->doc.first_child().child("Contents").child("Owner"));
}

TEST_F(ListingTest, UrlEncodingCarriesKeysXmlCannot) {
    const Keys odd = {"a b", "a+b", "100%", "\xE8\xA7\x86\xE9\xA2\x91/\xE5\xB0\x81.jpg", "x//y", "ctl\x01z"};
    seed(odd);
    auto page = list({{"encoding-type", "url"}, {"prefix", ""}});
    EXPECT_EQ(page->text("EncodingType"), "url");
    Keys decoded;
    for (const auto& k : page->keys) decoded.push_back(foundation::urlDecode(k).value_or("?"));
    Keys sorted = odd;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(decoded, sorted);
    // Spaces as %20 and '+' as %2B: decoders that take '+' for a space and those that don't agree.
    EXPECT_NE(std::find(page->keys.begin(), page->keys.end(), "a%20b"), page->keys.end());
    EXPECT_NE(std::find(page->keys.begin(), page->keys.end(), "a%2Bb"), page->keys.end());

    auto prefixed = list({{"encoding-type", "url"}, {"prefix", "a "}, {"delimiter", "/"}, {"marker", "a"}});
    EXPECT_EQ(prefixed->text("Prefix"), "a%20");
    EXPECT_EQ(prefixed->text("Delimiter"), "%2F");
    EXPECT_EQ(prefixed->keys, (Keys{"a%20b"}));
    auto utf8 = list({{"list-type", "2"}, {"encoding-type", "url"}, {"delimiter", "/"}, {"prefix", "\xE8\xA7\x86"}});
    EXPECT_EQ(utf8->prefixes, (Keys{"%E8%A7%86%E9%A2%91%2F"}));
    auto doubled = list({{"prefix", "x/"}, {"delimiter", "/"}});
    EXPECT_EQ(doubled->prefixes, (Keys{"x//"}));
}

TEST_F(ListingTest, DeletesOneOrManyAndQuietModeAnswersNothing) {
    seed({"one", "two", "three", "four", "a b+c"});
    auto del = [&](const std::string& key) {
        return client->Delete(path(key), signedHeaders(root, "DELETE", path(key)));
    };
    EXPECT_EQ(del("one")->status, 204);
    EXPECT_EQ(del("one")->status, 204);  // gone already: still 204
    EXPECT_FALSE(cloud.object(bucket(), "one"));

    auto body = [](bool quiet, const Keys& keys) {
        std::string xml = std::string("<?xml version=\"1.0\"?><Delete><Quiet>") + (quiet ? "true" : "false") + "</Quiet>";
        for (const auto& k : keys) xml += "<Object><Key>" + k + "</Key></Object>";
        return xml + "</Delete>";
    };
    auto multi = [&](const std::string& xml, const std::string& md5,
                     std::vector<std::pair<std::string, std::string>> extra = {}) {
        extra.insert(extra.begin(), std::make_pair(std::string("delete"), std::string()));
        return bucketRequest("POST", extra, "?delete", xml, md5);
    };
    EXPECT_EQ(xmlField(multi(body(false, {"two"}), md5Base64("other"))->body, "Code"), "InvalidDigest");
    EXPECT_EQ(xmlField(multi(body(false, {"two"}), "")->body, "Code"), "MissingArgument");
    EXPECT_EQ(xmlField(multi("<Delete/>", md5Base64("<Delete/>"))->body, "Code"), "MalformedXML");
    EXPECT_TRUE(cloud.object(bucket(), "two"));

    auto verbose = body(false, {"two", "missing", "a b+c"});
    auto res = multi(verbose, md5Base64(verbose), {{"encoding-type", "url"}});
    ASSERT_EQ(res->status, 200) << res->body;
    pugi::xml_document doc;
    doc.load_string(res->body.c_str());
    Keys deleted;
    for (auto d : doc.child("DeleteResult").children("Deleted")) deleted.emplace_back(d.child_value("Key"));
    EXPECT_EQ(deleted, (Keys{"two", "missing", "a%20b%2Bc"}));
    EXPECT_FALSE(cloud.object(bucket(), "a b+c"));

    auto quiet = body(true, {"three", "four"});
    res = multi(quiet, md5Base64(quiet));
    EXPECT_EQ(outcome(res) + res->body, "200");
    EXPECT_EQ(cloud.objects().size(), 0u);
}

TEST_F(ListingTest, ListsOpenUploadsInKeyThenStartOrderAndPagesThroughThem) {
    auto initiate = [&](const std::string& key) {
        auto res = client->Post(path(key) + "?uploads", signedHeaders(root, "POST", path(key) + "?uploads"), "", "");
        EXPECT_EQ(res->status, 200);
        return xmlField(res->body, "UploadId");
    };
    auto b1 = initiate("b");
    cloud.setClockSkew(std::chrono::seconds(2));  // a later start for the second upload of the same key
    auto b2 = initiate("b");
    for (const char* key : {"a", "dir/x", "dir/y"}) initiate(key);
    auto all = list({{"uploads", ""}}, "?uploads");
    EXPECT_EQ(all->keys, (Keys{"a", "b", "b", "dir/x", "dir/y"}));
    auto first = list({{"uploads", ""}, {"max-uploads", "2"}, {"delimiter", "/"}}, "?uploads");
    EXPECT_EQ(first->keys, (Keys{"a", "b"}));
    EXPECT_EQ(first->truncated, "true");
    EXPECT_EQ(first->text("NextUploadIdMarker"), b1);
    auto rest = list({{"uploads", ""}, {"delimiter", "/"}, {"key-marker", "b"}, {"upload-id-marker", b1}}, "?uploads");
    EXPECT_EQ(rest->keys, (Keys{"b"}));
    EXPECT_EQ(rest->doc.first_child().child("Upload").child_value("UploadId"), b2);
    EXPECT_EQ(rest->prefixes, (Keys{"dir/"}));
    EXPECT_EQ(rest->truncated, "false");
    EXPECT_EQ(list({{"uploads", ""}, {"prefix", "dir/"}, {"key-marker", "dir/x"}}, "?uploads")->keys, (Keys{"dir/y"}));
}

}  // namespace
}  // namespace quorvane::emulator
