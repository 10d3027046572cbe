// The upload client: its construction and the host's options. The queue and run control are in
// VODUploadClientQueue.cpp, the credentials in VODUploadClientAuth.cpp.
#include "VODUpload/src/VODUploadClient.h"

#include "VODUpload/src/VODUploadEngine.h"

namespace quorvane {

VODUploadClient::VODUploadClient() : engine_(VODUploadEngine::create()) {}
VODUploadClient::VODUploadClient(VODServiceConfig config) : engine_(VODUploadEngine::create(std::move(config))) {}
VODUploadClient::~VODUploadClient() = default;

VODClientState VODUploadClient::state() const { return engine_->state(); }
VODUploadOptions VODUploadClient::options() const { return engine_->options(); }
void VODUploadClient::setOptions(VODUploadOptions options) {
    options.timeoutIntervalForRequest = VODUploadOptions::requestTimeoutOrDefault(options.timeoutIntervalForRequest);
    engine_->updateOptions([&](VODUploadOptions& o) { o = std::move(options); });
}

namespace {
// One field of the options: read without waiting, and changed under the options' lock.
template <class T>
void setOption(VODUploadEngine& engine, T VODUploadOptions::*field, T value) {
    engine.updateOptions([&](VODUploadOptions& o) { o.*field = std::move(value); });
}
}  // namespace

std::int32_t VODUploadClient::maxRetryCount() const { return engine_->option(&VODUploadOptions::maxRetryCount); }
void VODUploadClient::setMaxRetryCount(std::int32_t v) { setOption(*engine_, &VODUploadOptions::maxRetryCount, v); }
double VODUploadClient::timeoutIntervalForRequest() const {
    return engine_->option(&VODUploadOptions::timeoutIntervalForRequest);
}
void VODUploadClient::setTimeoutIntervalForRequest(double seconds) {
    setOption(*engine_, &VODUploadOptions::timeoutIntervalForRequest,
              VODUploadOptions::requestTimeoutOrDefault(seconds));
}
void VODUploadClient::setCaFile(std::string path) { setOption(*engine_, &VODUploadOptions::caFile, std::move(path)); }
std::string VODUploadClient::recordDirectoryPath() const {
    return engine_->option(&VODUploadOptions::recordDirectoryPath);
}
void VODUploadClient::setRecordDirectoryPath(std::string path) {
    setOption(*engine_, &VODUploadOptions::recordDirectoryPath, std::move(path));
}
bool VODUploadClient::recordUploadProgress() const { return engine_->option(&VODUploadOptions::recordUploadProgress); }
void VODUploadClient::setRecordUploadProgress(bool on) {
    setOption(*engine_, &VODUploadOptions::recordUploadProgress, on);
}
std::int32_t VODUploadClient::uploadPartSize() const { return engine_->option(&VODUploadOptions::uploadPartSize); }
void VODUploadClient::setUploadPartSize(std::int32_t bytes) {
    setOption(*engine_, &VODUploadOptions::uploadPartSize, bytes);
}
bool VODUploadClient::singleRequestUpload() const { return engine_->option(&VODUploadOptions::singleRequestUpload); }
void VODUploadClient::setSingleRequestUpload(bool on) {
    setOption(*engine_, &VODUploadOptions::singleRequestUpload, on);
}
std::int64_t VODUploadClient::partSizeFor(std::int64_t fileSize) const { return engine_->partSizeFor(fileSize); }
std::string VODUploadClient::region() const { return engine_->option(&VODUploadOptions::region); }
void VODUploadClient::setRegion(std::string region) {
    setOption(*engine_, &VODUploadOptions::region, std::move(region));
}
void VODUploadClient::setStorageSignature(std::optional<oss::OSSSignatureVersion> version, std::string storageRegion) {
    engine_->updateOptions([&](VODUploadOptions& o) {
        o.storageSignatureVersion = version;
        o.storageRegion = std::move(storageRegion);
    });
}
std::optional<std::string> VODUploadClient::appId() const { return engine_->option(&VODUploadOptions::appId); }
void VODUploadClient::setAppId(std::optional<std::string> v) {
    setOption(*engine_, &VODUploadOptions::appId, std::move(v));
}
std::optional<std::string> VODUploadClient::workflowId() const {
    return engine_->option(&VODUploadOptions::workflowId);
}
void VODUploadClient::setWorkflowId(std::optional<std::string> v) {
    setOption(*engine_, &VODUploadOptions::workflowId, std::move(v));
}
bool VODUploadClient::reportEnabled() const { return engine_->option(&VODUploadOptions::reportEnabled); }
void VODUploadClient::setReportEnabled(bool on) { setOption(*engine_, &VODUploadOptions::reportEnabled, on); }
bool VODUploadClient::transcode() const { return engine_->option(&VODUploadOptions::transcode); }
void VODUploadClient::setTranscode(bool on) { setOption(*engine_, &VODUploadOptions::transcode, on); }
std::int32_t VODUploadClient::retryNotify() const {
    return engine_->serially([&e = *engine_] { return e.retry_.count(); });
}
void VODUploadClient::setRetryNotify(std::int32_t v) {
    engine_->serially([&e = *engine_, v] { e.retry_.setCount(v); });
}
std::optional<std::string> VODUploadClient::requestId() const { return engine_->option(&VODUploadOptions::requestId); }
void VODUploadClient::setRequestId(std::optional<std::string> v) {
    setOption(*engine_, &VODUploadOptions::requestId, std::move(v));
}
const VODServiceConfig& VODUploadClient::serviceConfig() const { return engine_->serviceConfig(); }

}  // namespace quorvane
