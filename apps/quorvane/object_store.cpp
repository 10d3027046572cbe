#include "object_store.h"

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>

#include "oss/oss_client.h"
#include "oss/oss_error.h"

namespace quorvane::app {
namespace {

constexpr auto kRequestWait = std::chrono::seconds(120);

}  // namespace

std::unique_ptr<oss::OSSClient> makeStoreClient(const StoreAccess& a, std::optional<std::uint32_t> maxRetryCount) {
    std::shared_ptr<oss::OSSCredentialProvider> provider;
    if (a.token.empty()) {
        provider = std::make_shared<oss::OSSPlainTextAKSKPairCredentialProvider>(a.keyId, a.secret);
    } else {
        auto token = std::make_shared<oss::OSSFederationToken>();
        token->tAccessKey = a.keyId;
        token->tSecretKey = a.secret;
        token->tToken = a.token;
        if (!a.expire.empty()) token->expirationTimeInGMTFormat = a.expire;
        provider = std::make_shared<oss::OSSFederationCredentialProvider>([token] { return token; });
    }
    oss::OSSClientConfiguration config;
    config.caFile = a.caFile;
    if (maxRetryCount) config.maxRetryCount = *maxRetryCount;
    if (a.idleTimeout > 0) config.timeoutIntervalForRequest = a.idleTimeout;
    config.region = a.region;
    config.httpClient = a.http;
    config.signatureVersion = a.signatureVersion == 1 ? oss::OSSSignatureVersion::V1 : oss::OSSSignatureVersion::V4;
    return std::make_unique<oss::OSSClient>(a.endpoint, provider, config);
}

ErrorText describeError(const Error& error) {
    ErrorText text;
    text.code = error.userInfo.is_object() && error.userInfo.contains("Code") && error.userInfo["Code"].is_string()
                    ? error.userInfo["Code"].get<std::string>()
                    : std::to_string(error.code);
    text.message = error.description.empty() ? error.toString() : error.description;
    return text;
}

// Shared by the lookup and its requests' completions, which may run after the lookup is dropped.
struct StoredObjectLookup::Impl : std::enable_shared_from_this<Impl> {
    std::unique_ptr<oss::OSSClient> client;
    std::string bucket;
    std::vector<std::string> keys;
    Answered answered;
    std::mutex mutex;
    std::size_t next = 0;
    bool cancelled = false;
    std::map<std::size_t, std::shared_ptr<oss::OSSHeadObjectRequest>> inFlight;

    void sendNext() {
        std::shared_ptr<oss::OSSHeadObjectRequest> request;
        std::size_t index;
        {
            std::lock_guard lock(mutex);
            if (cancelled || next >= keys.size()) return;
            index = next++;
            request = std::make_shared<oss::OSSHeadObjectRequest>();
            request->bucketName = bucket;
            request->objectKey = keys[index];
            inFlight[index] = request;
        }
        auto task = client->headObject(request);
        task->continueWithBlock([self = shared_from_this(), index](const oss::OSSTask<oss::OSSHeadObjectResult>& done) {
            self->onAnswer(index, done);
        });
    }

    void onAnswer(std::size_t index, const oss::OSSTask<oss::OSSHeadObjectResult>& task) {
        {
            std::lock_guard lock(mutex);
            inFlight.erase(index);
            if (cancelled) return;
        }
        StoredObjectAnswer answer;
        if (auto result = task.result(); result && !task.isFaulted())
            answer.stored = StoredObject{static_cast<std::uint64_t>(result->contentLength), result->remoteCRC64ecma};
        else if (auto error = task.error(); error && oss::isRetryableError(*error))
            answer.trouble = oss::retryCause(*error);
        answered(index, answer);
        sendNext();
    }

    void cancel() {
        std::map<std::size_t, std::shared_ptr<oss::OSSHeadObjectRequest>> asked;
        {
            std::lock_guard lock(mutex);
            cancelled = true;
            asked.swap(inFlight);
        }
        for (auto& [index, request] : asked) request->cancel();
    }
};

std::shared_ptr<StoredObjectLookup> StoredObjectLookup::start(const StoreAccess& access, std::vector<std::string> keys,
                                                              std::size_t window, Answered answered) {
    auto impl = std::make_shared<Impl>();
    impl->client = makeStoreClient(access, 0);
    impl->bucket = access.bucket;
    impl->keys = std::move(keys);
    impl->answered = std::move(answered);
    for (std::size_t i = 0; i < std::max<std::size_t>(window, 1); ++i) impl->sendNext();
    return std::shared_ptr<StoredObjectLookup>(new StoredObjectLookup(std::move(impl)));
}

StoredObjectLookup::~StoredObjectLookup() { impl_->cancel(); }

std::string putEmptyObject(const StoreAccess& access, const std::string& key, std::string& code) {
    auto client = makeStoreClient(access, 1);
    auto request = std::make_shared<oss::OSSPutObjectRequest>();
    request->bucketName = access.bucket;
    request->objectKey = key;
    request->uploadingData = std::string();
    auto task = client->putObject(request);
    if (!task->waitFor(kRequestWait)) {
        request->cancel();
        code = "RequestTimeout";
        return "the service did not answer";
    }
    if (auto error = task->error()) {
        auto text = describeError(*error);
        code = text.code;
        return text.message;
    }
    return {};
}

}  // namespace quorvane::app
