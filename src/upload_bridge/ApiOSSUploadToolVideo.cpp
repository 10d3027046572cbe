// The video path: a ticket from the enterprise server, then the engine uploads the file with the
// ticket's credentials while the overlay shows its progress.
#include <filesystem>

#include "VODUpload/src/VODUploadClient.h"
#include "foundation/dispatch.h"
#include "foundation/sandbox_paths.h"
#include "platform/view.h"
#include "upload_bridge/ApiOSSUploadTool.h"
#include "upload_bridge/QuorvaneErrors.h"
#include "upload_bridge/UploadPaths.h"

namespace quorvane {
namespace {

constexpr unsigned long long kMaxVideoBytes = 500000000;

std::string textAt(const Value& dict, const char* key) {
    if (!dict.is_object() || !dict.contains(key)) return "";
    const Value& value = dict[key];
    return value.is_string() ? value.get<std::string>() : (value.is_null() ? "" : foundation::toJsonText(value));
}

std::shared_ptr<VodInfo> videoInfo(const std::string& fileName) {
    auto info = std::make_shared<VodInfo>();
    info->title = fileName;
    info->desc = "desc";
    info->cateId = 19;
    info->tags = "sports";
    return info;
}

}  // namespace

void ApiOSSUploadTool::VODUploadFile(const Value& dict, ResultBlock successCallback, ResultBlock failCallback) {
    SuccessCallback_ = [successCallback](const Value& result) { successCallback(result); };
    FailCallback_ = [failCallback](const Value& failure) { failCallback(failure); };
    const Value files = dict.is_object() && dict.contains("files") ? dict["files"] : Value();
    if (!files.is_array() || files.empty() || !files[0].is_object()) return FailCallback_(kNativeErrorRequestFailed.toValue());
    const Value& entry = files[0];
    std::string fileName = lastMediaComponent(textAt(entry, "filePath"));
    std::string filePath = getfilePathFromSandboxTmpWithMiddleDir(foundation::kMediaDirectory, fileName);
    std::error_code error;
    unsigned long long fileSize = std::filesystem::file_size(filePath, error);
    if (error) fileSize = 0;
    if (fileSize > kMaxVideoBytes)
        return FailCallback_(Value{{"message", kNativeErrorFileTooLarge.message}, {"code", kNativeErrorFileTooLarge.code}});
    const Value body{{"file_name", textAt(entry, "objectKey") + ".mp4"}};
    const std::string bodyText = body.dump(-1, ' ', false, Value::error_handler_t::replace);
    std::string url = config_.enterpriseApiBaseUrl + "/enterprise-api/v2/" + textAt(dict, "enterpriseId") +
                      "/ticket?access_token=" + textAt(dict, "accessToken");
    postRequestWithUrl(url, Value::object(), bodyText, true, Value::object(),
                       [self = shared_from_this(), filePath, fileName, fileSize](
                           const Value& data, const std::string&, const std::optional<Error>&) {
                           self->onTicket(data, filePath, fileName, fileSize);
                       },
                       config_.httpClient);
}

void ApiOSSUploadTool::onTicket(const Value& answer, const std::string& filePath, const std::string& fileName,
                                unsigned long long fileSize) {
    if (!answer.is_object() || !answer.contains("uploadAuth")) {
        // The server's own code and message go on as it wrote them.
        auto given = [&](const char* key, const char* fallback) {
            return answer.is_object() && answer.contains(key) && !answer[key].is_null() ? answer[key] : Value(fallback);
        };
        return FailCallback_(Value{{"code", given("code", kNativeErrorRequestFailed.code)},
                                   {"message", given("message", kNativeErrorRequestFailed.message)}});
    }
    uploadAddress_ = textAt(answer, "uploadAddress");
    uploadAuth_ = textAt(answer, "uploadAuth");
    vodUploadDict_ = Value{{"path", ""}, {"videoId", textAt(answer, "videoId")}, {"name", fileName},
                           {"size", std::to_string(fileSize)}};
    uploader_->addFile(filePath, videoInfo(fileName));
    std::weak_ptr<ApiOSSUploadTool> weak = weak_from_this();
    uploadingView_ = UploadingView::initWithCancelCallback([weak] {
        auto self = weak.lock();
        if (!self) return;
        self->uploader_->stop();
        // A stopped upload answers nothing more; the tool can go once this tap is over.
        foundation::dispatch::main().async([retained = self->releaseUploadRetain()] {});
    });
    platform::Window::keyWindow()->addSubview(uploadingView_);
    retainWhileUploading();
    uploader_->start();
}

}  // namespace quorvane
