#include <gtest/gtest.h>

#include "VODUpload/src/VodInfo.h"
#include "foundation/crypto.h"

using quorvane::Value;
using quorvane::VodInfo;

namespace {

Value decoded(const VodInfo& info) {
    auto bytes = quorvane::foundation::base64Decode(info.toJson());
    EXPECT_TRUE(bytes.has_value());
    return Value::parse(bytes.value_or("null"));
}

VodInfo fullInfo() {
    VodInfo info;
    info.title = "Trip";
    info.desc = "by the sea";
    info.cateId = 1000;
    info.tags = "sea,sun";
    info.coverUrl = "https://img.example.com/c.jpg";
    return info;
}

}  // namespace

// Without user data the watermark and priority go in its place; the caller's user data replaces them,
// an empty one does not.
TEST(VodInfo, UserDataReplacesWatermarkAndPriorityUnlessEmpty) {
    EXPECT_EQ(decoded(fullInfo()), Value::parse(R"({"Vod":{"Title":"Trip","Description":"by the sea","CateId":1000,
        "Tags":"sea,sun","UserData":{"IsShowWaterMark":"false","Priority":6},
        "CoverUrl":"https://img.example.com/c.jpg","IsProcess":"true"}})"));
    VodInfo info = fullInfo();
    info.isShowWaterMark = true;
    info.isProcess = false;
    info.userData = R"({"k":"v"})";
    Value vod = decoded(info)["Vod"];
    EXPECT_EQ(vod["UserData"], Value(R"({"k":"v"})"));  // the caller's text, as a JSON string
    EXPECT_EQ(vod["IsProcess"], Value("false"));

    info.userData = "";
    EXPECT_EQ(decoded(info)["Vod"]["UserData"], Value::parse(R"({"IsShowWaterMark":"true","Priority":6})"));
}

TEST(VodInfo, StopsAtFirstAbsentField) {
    EXPECT_EQ(decoded(VodInfo()), Value::parse(R"({"Vod":{}})"));
    VodInfo noDesc = fullInfo();
    noDesc.desc.reset();
    noDesc.userData = "x";
    EXPECT_EQ(decoded(noDesc), Value::parse(R"({"Vod":{"Title":"Trip"}})"));

    VodInfo noCover = fullInfo();
    noCover.coverUrl.reset();
    Value vod = decoded(noCover)["Vod"];
    EXPECT_TRUE(vod.contains("UserData"));
    EXPECT_FALSE(vod.contains("CoverUrl"));
    EXPECT_FALSE(vod.contains("IsProcess"));
}

TEST(VodInfo, PriorityOutsideOneToTenIsIgnored) {
    VodInfo info = fullInfo();
    for (long long bad : {0LL, -3LL, 11LL}) {
        info.setPriority(bad);
        EXPECT_EQ(info.priority(), 6) << bad;
    }
    info.setPriority(1);
    EXPECT_EQ(info.priority(), 1);
    info.setPriority(10);
    info.setPriority(0);
    EXPECT_EQ(decoded(info)["Vod"]["UserData"]["Priority"], Value(10));
}

TEST(VodInfo, TextThatIsNotUtf8GivesEmptyResult) {
    VodInfo info = fullInfo();
    info.tags = "\xff\xfe";
    EXPECT_EQ(info.toJson(), "");
}
