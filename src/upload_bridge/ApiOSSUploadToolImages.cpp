// The image path: object-storage configuration from the enterprise server, then the files put one
// at a time on a serial queue, each answered on the main queue, under the upload overlay.
#include <filesystem>
#include <vector>

#include "foundation/dispatch.h"
#include "foundation/log.h"
#include "foundation/sandbox_paths.h"
#include "oss/credential_provider.h"
#include "platform/view.h"
#include "upload_bridge/ApiOSSUploadTool.h"
#include "upload_bridge/QuorvaneErrors.h"
#include "upload_bridge/UploadPaths.h"

namespace quorvane {
namespace {

constexpr long long kSignErrorCode = -1001;

std::string textOf(const Value& value) {
    if (value.is_string()) return value.get<std::string>();
    return value.is_null() ? "" : foundation::toJsonText(value);
}

std::string stringOr(const Value& dict, const char* key) {
    return dict.is_object() && dict.contains(key) ? textOf(dict[key]) : "";
}

// "https://<bucket>.<endpoint without scheme>/<objectKey>".
std::string publicPath(const std::string& bucket, std::string endpoint, const std::string& objectKey) {
    for (const std::string scheme : {"https://", "http://"})
        for (auto at = endpoint.find(scheme); at != std::string::npos; at = endpoint.find(scheme))
            endpoint.erase(at, scheme.size());
    return "https://" + bucket + "." + endpoint + "/" + objectKey;
}

unsigned long long fileSizeOf(const std::string& path) {
    std::error_code error;
    auto size = std::filesystem::file_size(path, error);
    return error ? 0 : size;
}

}  // namespace

// Deliberately simple: not a byte-accurate total, and it jumps back at each new file.
int ApiOSSUploadTool::imageUploadPercent(std::int64_t sent, std::int64_t expected, std::size_t index,
                                         std::size_t count) {
    if (expected <= 0 || count == 0) return 0;
    float filePercent = static_cast<float>(sent * 1.0 / (expected * 1.0) * 100.0);
    return static_cast<int>(filePercent * static_cast<float>(index + 1) / static_cast<float>(count));
}

void ApiOSSUploadTool::simpleUploadMany(const Value& dict, ResultBlock successCallback, ResultBlock failCallback) {
    imageUploadCancelStatus_ = 0;
    std::string url = config_.enterpriseApiBaseUrl + "/enterprise-api/oss/config";
    Value params{{"access_token", stringOr(dict, "accessToken")}};
    Value files = dict.is_object() && dict.contains("files") && dict["files"].is_array() ? dict["files"] : Value::array();
    getRequestWithUrl(url, params,
                      [self = shared_from_this(), files, successCallback, failCallback](
                          const Value& data, const std::string&, const std::optional<Error>&) {
                          self->onOssConfig(data, files, successCallback, failCallback);
                      },
                      config_.httpClient);
}

void ApiOSSUploadTool::onOssConfig(const Value& answer, const Value& files, ResultBlock successCallback,
                                   ResultBlock failCallback) {
    if (!answer.is_object()) return failCallback(kNativeErrorRequestFailed.toValue());
    if (answer.contains("code")) return failCallback(nativeError(textOf(answer["code"]), stringOr(answer, "msg")));
    std::string endpoint = stringOr(answer, "endpoint");
    makeClient(stringOr(answer, "accessKeyId"), stringOr(answer, "accessKeySecret"), endpoint);
    uploadFiles(files, stringOr(answer, "bucket"), endpoint, std::move(successCallback),
                std::move(failCallback));
}

// Each request is signed here with the configuration's secret, which never leaves the tool.
void ApiOSSUploadTool::makeClient(const std::string& accessKeyId, const std::string& accessKeySecret,
                                  const std::string& endpoint) {
    auto provider = std::make_shared<oss::OSSCustomSignerCredentialProvider>(
        [accessKeyId, accessKeySecret, host = hostNameOf(config_.enterpriseApiBaseUrl)](
            const std::string& contentToSign, Error* error) -> std::optional<std::string> {
            auto signature = oss::OSSUtil::calBase64Sha1WithData(contentToSign, accessKeySecret);
            if (signature) return "OSS " + accessKeyId + ":" + *signature;
            if (error) *error = Error(host, kSignErrorCode);
            return std::nullopt;
        });
    oss::OSSClientConfiguration conf;
    conf.httpClient = config_.httpClient;
    client_ = std::make_shared<oss::OSSClient>(endpoint, provider, std::move(conf));
}

void ApiOSSUploadTool::uploadFiles(Value files, std::string bucket, std::string endpoint, ResultBlock successCallback,
                                   ResultBlock failCallback) {
    auto results = std::make_shared<Value>(Value::array());
    const std::size_t count = files.size();
    std::weak_ptr<ApiOSSUploadTool> weakSelf = weak_from_this();
    uploadingView_ = UploadingView::initWithCancelCallback([weakSelf] {
        if (auto self = weakSelf.lock()) self->imageUploadCancelStatus_ = 1;
    });
    platform::Window::keyWindow()->addSubview(uploadingView_);
    auto lastErrorInfo = std::make_shared<Value>(Value::object());  // kept, never reported
    auto queue = std::make_shared<foundation::SerialQueue>("com.brenlow.platform");
    queue->async([self = shared_from_this(), files, bucket, endpoint, count, results, lastErrorInfo,
                  successCallback, failCallback] {
        for (std::size_t i = 0; i < count; ++i) {
            // After a cancel nothing more is sent: the wait below was released without an answer.
            if (self->imageUploadCancelStatus_ == 1) break;
            auto semaphore = std::make_shared<foundation::Semaphore>(0);
            const Value& file = files[i];
            std::string objectKey = stringOr(file, "objectKey");
            std::string localPath = localMediaPath(stringOr(file, "filePath"));
            auto size = fileSizeOf(localPath);
            auto request = std::make_shared<oss::OSSPutObjectRequest>();
            request->bucketName = bucket;
            request->objectKey = objectKey;
            request->uploadingFileURL = localPath;
            std::weak_ptr<ApiOSSUploadTool> weak = self;
            request->uploadProgress = [weak, i, count](std::int64_t, std::int64_t sent, std::int64_t expected) {
                int percent = imageUploadPercent(sent, expected, i, count);
                foundation::dispatch::main().async([weak, percent] {
                    auto tool = weak.lock();
                    if (tool && tool->uploadingView_) tool->uploadingView_->uploadingViewUpdate(percent);
                });
            };
            Value element{{"path", publicPath(bucket, endpoint, objectKey)}, {"videoId", ""}, {"name", objectKey},
                          {"size", std::to_string(size)}};
            // The loop below waits for this file, so the completion needs no reference of its own.
            self->client_->putObject(request)->continueWithBlock([weak, semaphore, i, count, element, results,
                                                                  lastErrorInfo, successCallback,
                                                                  failCallback](const auto& task) {
                auto tool = weak.lock();
                if (!tool || tool->imageUploadCancelStatus_ == 1) return semaphore->signal();
                auto error = task.error();
                foundation::dispatch::main().async([tool, error, semaphore, i, count, element, results, lastErrorInfo,
                                                    successCallback, failCallback] {
                    if (!error) {
                        foundation::logLine("upload object success! =dsw= " +
                                            element.dump(-1, ' ', false, Value::error_handler_t::replace));
                        results->push_back(element);
                    } else {
                        foundation::logLine("upload object failed, error: " + error->toString());
                        *lastErrorInfo = error->userInfo;
                    }
                    if (i + 1 == count) {
                        if (tool->uploadingView_) tool->uploadingView_->uploadingViewRemove();
                        if (!results->empty()) successCallback(*results);
                        else failCallback(kNativeErrorUploadFailed.toValue());
                    }
                    semaphore->signal();
                });
            });
            semaphore->wait();
        }
    });
}

}  // namespace quorvane
