#pragma once
// Takes the host's uploads to cloud storage: object-storage configuration, multi-image upload to
// OSS, and ticket-based video upload through the upload engine, under the upload overlay.
//
// Member definitions are split by concern:
//   ApiOSSUploadTool.cpp          construction, the engine's listener, the enterprise API host
//   ApiOSSUploadToolImages.cpp    configuration fetch and the multi-image upload
//   ApiOSSUploadToolVideo.cpp     the ticket request and the video hand-off
//   ApiOSSUploadToolRequests.cpp  the HTTP helpers
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "VODUpload/src/VODServiceConfig.h"
#include "foundation/HttpSessionManager.h"
#include "foundation/value.h"
#include "oss/oss_client.h"
#include "upload_bridge/UploadingView.h"

namespace quorvane {

class VODUploadClient;

class ApiOSSUploadTool : public std::enable_shared_from_this<ApiOSSUploadTool> {
public:
    // One argument: an array of result dictionaries / a failure dictionary.
    using ResultBlock = std::function<void(const Value&)>;

    // --- The services (deployment settings; the request paths are fixed) ---
    static constexpr const char* kDefaultEnterpriseApiBaseUrl = "https://api.quorvane.com";

    // What one tool talks to, fixed at its creation.
    struct Config {
        // Scheme and host (and port) of the enterprise API, e.g. "http://127.0.0.1:8080"; a trailing
        // "/" is dropped.
        std::string enterpriseApiBaseUrl = kDefaultEnterpriseApiBaseUrl;
        std::shared_ptr<foundation::HttpClient> httpClient;  // enterprise requests; nullptr = the shared one
        VODServiceConfig vod;                                // the tool's upload engine
    };

    // A new tool (init): its upload engine, with the tool's listener installed. Always held by
    // std::shared_ptr; the work it starts keeps it alive until that work has answered. Without a
    // configuration, the system's own services.
    static std::shared_ptr<ApiOSSUploadTool> create();
    static std::shared_ptr<ApiOSSUploadTool> create(Config config);
    ApiOSSUploadTool();
    explicit ApiOSSUploadTool(Config config);
    ~ApiOSSUploadTool();
    ApiOSSUploadTool(const ApiOSSUploadTool&) = delete;
    ApiOSSUploadTool& operator=(const ApiOSSUploadTool&) = delete;

    // --- Uploads ---
    // Fetches the object-storage configuration, then puts the "files" one at a time. Success gets
    // one {"path", "videoId", "name", "size"} per stored file, in order; fail a {"code", "message"}.
    // A cancel from the overlay silences it for good.
    void simpleUploadMany(const Value& dict, ResultBlock successCallback, ResultBlock failCallback);
    // Asks the enterprise server for a ticket and hands the first of "files" to the engine.
    void VODUploadFile(const Value& dict, ResultBlock successCallback, ResultBlock failCallback);
    // The overlay's figure while file `index` of `count` is put: that file's own percentage (in
    // single precision) scaled by its place in the list, truncated.
    static int imageUploadPercent(std::int64_t sent, std::int64_t expected, std::size_t index, std::size_t count);

    // Temporary directory [/ middleDir] / fileName, without touching the disk.
    static std::string getfilePathFromSandboxTmpWithMiddleDir(const std::string& middleDir, const std::string& fileName);

    // --- HTTP helpers for the enterprise server ---
    // Each helper also comes with the HTTP client to send through as its last parameter (nullptr = the
    // shared one).
    static std::shared_ptr<HttpSessionManager> pubManager();
    static std::shared_ptr<HttpSessionManager> pubManager(std::shared_ptr<foundation::HttpClient> client);
    // JSON GET; parameters go into the query string. A failed request's body is not read.
    static void getRequestWithUrl(const std::string& url, const Value& requestParam, ReponseData reponseData);
    static void getRequestWithUrl(const std::string& url, const Value& requestParam, ReponseData reponseData,
                                  std::shared_ptr<foundation::HttpClient> client);
    // POST of `bodyFromData` as the whole body. Header values that are empty are not sent; a
    // failed request's JSON body reaches the caller with "failure".
    static void postRequestWithUrl(const std::string& url, const Value& requestParam, const std::string& bodyFromData,
                                   bool needJsonContentType, const Value& header, ReponseData reponseData);
    static void postRequestWithUrl(const std::string& url, const Value& requestParam, const std::string& bodyFromData,
                                   bool needJsonContentType, const Value& header, ReponseData reponseData,
                                   std::shared_ptr<foundation::HttpClient> client);

    // --- Properties ---
    const Config& config() const { return config_; }
    std::shared_ptr<oss::OSSClient> client() const { return client_; }
    std::shared_ptr<VODUploadClient> uploader() const { return uploader_; }
    std::shared_ptr<UploadingView> uploadingView() const { return uploadingView_; }
    const std::string& uploadAddress() const { return uploadAddress_; }
    const std::string& uploadAuth() const { return uploadAuth_; }
    const Value& vodUploadDict() const { return vodUploadDict_; }
    int imageUploadCancelStatus() const { return imageUploadCancelStatus_; }
    const ResultBlock& SuccessCallback() const { return SuccessCallback_; }
    const ResultBlock& FailCallback() const { return FailCallback_; }

private:
    void init();
    static std::string hostNameOf(std::string baseUrl);
    // Image path steps.
    void onOssConfig(const Value& answer, const Value& files, ResultBlock successCallback, ResultBlock failCallback);
    void makeClient(const std::string& accessKeyId, const std::string& accessKeySecret, const std::string& endpoint);
    void uploadFiles(Value files, std::string bucket, std::string endpoint, ResultBlock successCallback,
                     ResultBlock failCallback);
    // Video path steps.
    void onTicket(const Value& answer, const std::string& filePath, const std::string& fileName,
                  unsigned long long fileSize);
    void removeOverlayOnMain();
    // A running video upload keeps the tool alive (the engine's listener holds it only weakly)
    // until it answers or is cancelled; the reference is then dropped on the main thread.
    void retainWhileUploading();
    std::shared_ptr<ApiOSSUploadTool> releaseUploadRetain();

    const Config config_;
    std::shared_ptr<oss::OSSClient> client_;
    std::shared_ptr<VODUploadClient> uploader_;
    std::shared_ptr<UploadingView> uploadingView_;
    std::string uploadAddress_;
    std::string uploadAuth_;
    Value vodUploadDict_ = Value::object();
    std::atomic<int> imageUploadCancelStatus_{0};
    ResultBlock SuccessCallback_;
    ResultBlock FailCallback_;

    std::mutex retainMutex_;
    std::shared_ptr<ApiOSSUploadTool> uploadRetain_;
};

}  // namespace quorvane
