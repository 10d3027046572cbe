#include <gtest/gtest.h>

#include <map>
#include <string>

#include "VODUpload/src/VODCreateUploadParams.h"

namespace quorvane {

// The service sorts the query before it checks the signature, so only names and values count here.
TEST(CreateUploadParams, EveryGivenFieldIsSentAsTextUnderTheServicesName) {
    VODCreateUploadFields f;
    f.coverUrl = "https://img/c.jpg";
    f.fileSize = "2048";
    f.description = "d";
    f.cateId = 1000;
    f.tags = "a,b";
    f.storageLocation = "loc";
    f.templateGroupId = "tg";
    f.transcode = false;
    f.appId = "app";
    f.workflowId = "wf";
    f.userData = "{}";
    const Value params = createUploadVideoParams(f);
    std::map<std::string, std::string> sent;
    for (const auto& [name, value] : params.items()) sent[name] = value.get<std::string>();
    EXPECT_EQ(sent, (std::map<std::string, std::string>{
                        {"CoverURL", "https://img/c.jpg"}, {"FileSize", "2048"}, {"Description", "d"},
                        {"CateId", "1000"}, {"Tags", "a,b"}, {"StorageLocation", "loc"}, {"TemplateGroupId", "tg"},
                        {"AppId", "app"}, {"WorkflowId", "wf"}, {"UserData", "{}"}}));
}

TEST(CreateUploadParams, NoTranscodingUnlessATemplateGroupDecides) {
    VODCreateUploadFields f;
    f.appId = "";
    f.workflowId = "";
    EXPECT_EQ(foundation::toJsonText(createUploadVideoParams(f)), R"({"FileSize":"0"})");
    f.transcode = false;
    EXPECT_EQ(createUploadVideoParams(f).value("TranscodeMode", ""), "NoTranscode");
    f.templateGroupId = "";
    const auto uploadClient = createUploadVideoParams(f);
    EXPECT_EQ(uploadClient.value("TranscodeMode", ""), "NoTranscode");  // an empty group is none
    EXPECT_EQ(uploadClient.value("TemplateGroupId", "-"), "");
    f.emptyTemplateGroupIsNone = false;  // the short-video client: given at all is enough
    EXPECT_FALSE(createUploadVideoParams(f).contains("TranscodeMode"));
}

}  // namespace quorvane
