// Per-tool configuration: two bridge tools in one process, each created with its own enterprise API
// host, fetch their storage configuration from it and store their images there, whatever the
// process-wide host says.
#include "bridge_test_support.h"

namespace quorvane::test {
namespace {

class TwoTools : public BridgeCloudTest {};

TEST_F(TwoTools, EachFetchesItsConfigurationFromItsOwnHost) {
    emulator::CloudEmulator x, y;
    ASSERT_TRUE(x.start());
    ASSERT_TRUE(y.start());
    struct Run {
        emulator::CloudEmulator& cloud;
        std::string name;
        Answers answers;
    };
    Run runs[] = {{x, "x.jpg", {}}, {y, "y.jpg", {}}};
    std::vector<std::shared_ptr<ApiOSSUploadTool>> tools;
    unsigned seed = 31;
    for (auto& run : runs) {
        auto config = ApiOSSUploadTool::Config::current();
        config.enterpriseApiBaseUrl = run.cloud.endpoint() + "/";
        tools.push_back(ApiOSSUploadTool::create(config));
        Value files = Value::array({Value{{"filePath", mediaFile(run.name, randomBytes(9000, seed++))},
                                          {"objectKey", "album/" + run.name}}});
        tools.back()->simpleUploadMany(Value{{"accessToken", run.cloud.options().enterpriseAccessToken},
                                             {"files", files}},
                                       run.answers.success(), run.answers.fail());
    }
    for (auto& run : runs) {
        SCOPED_TRACE(run.name);
        ASSERT_TRUE(run.answers.waitForOne());
        ASSERT_EQ(run.answers.successes().size(), 1u);
        const auto calls = run.cloud.enterpriseCalls();
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].operation, "GetOssConfig");
        const auto objects = run.cloud.objects();
        ASSERT_EQ(objects.size(), 1u);
        EXPECT_EQ(objects[0].key, "album/" + run.name);
    }
    // The process-wide host, the fixture's own emulator, was never asked.
    EXPECT_TRUE(cloud.enterpriseCalls().empty());
    EXPECT_TRUE(cloud.objects().empty());
}

}  // namespace
}  // namespace quorvane::test
