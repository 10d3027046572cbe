// Fault scripts: consumed in order per operation, counted, and visible to a real client.
#include "emulator_test_support.h"

namespace quorvane::emulator {
namespace {

using testing::CloudTest;
using testing::xmlField;

class FaultTest : public CloudTest {};

TEST_F(FaultTest, ErrorFaultsFireInOrderForTheirOperationOnly) {
    cloud.addFaults({Fault::error("PutObject", 403, "SecurityTokenExpired"), Fault::error("PutObject", 500, "InternalError")});
    EXPECT_EQ(get(path("none"), path("none"), root)->status, 404);  // another operation is untouched
    auto first = put("f.txt", "x", root);
    EXPECT_EQ(first->status, 403);
    EXPECT_EQ(xmlField(first->body, "Code"), "SecurityTokenExpired");
    EXPECT_EQ(xmlField(put("f.txt", "x", root)->body, "Code"), "InternalError");
    EXPECT_EQ(put("f.txt", "x", root)->status, 200);
    EXPECT_EQ(cloud.firedCount("PutObject"), 2u);
    EXPECT_EQ(cloud.pendingFaults(), 0u);
    EXPECT_EQ(cloud.requests("PutObject").back().status, 200);
    EXPECT_EQ(cloud.requests("PutObject").front().errorCode, "SecurityTokenExpired");
}

TEST_F(FaultTest, ResetClosesWithoutAnswerAndStoresNothing) {
    cloud.addFault(Fault::reset("PutObject", 1000));
    auto res = put("cut.bin", std::string(200000, 'z'), root);
    EXPECT_FALSE(res);  // the connection died: no status at all
    EXPECT_FALSE(cloud.object(bucket(), "cut.bin"));
    auto recorded = cloud.requests("PutObject");
    ASSERT_EQ(recorded.size(), 1u);
    EXPECT_EQ(recorded[0].status, 0);
    EXPECT_GE(recorded[0].bodySize, 1000u);
    EXPECT_EQ(put("cut.bin", "ok", root)->status, 200);  // a new connection is served normally
}

TEST_F(FaultTest, WildcardAndCorruptCrcFaults) {
    cloud.addFault(Fault::corruptCrc("PutObject"));
    auto res = put("c.txt", "123456789", root);
    ASSERT_EQ(res->status, 200);
    EXPECT_NE(res->get_header_value("x-oss-hash-crc64ecma"), "11051210869376104954");
    EXPECT_EQ(cloud.object(bucket(), "c.txt")->crc64, 11051210869376104954ULL);  // only the answer lies

    cloud.addFault(Fault::error("*", 503, "ServiceUnavailable"));
    EXPECT_EQ(get(path("c.txt"), path("c.txt"), root)->status, 503);
    EXPECT_EQ(cloud.firedFaults().back().operation, "GetObject");
}

}  // namespace
}  // namespace quorvane::emulator
