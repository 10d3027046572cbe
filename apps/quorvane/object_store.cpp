#include "object_store.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <memory>
#include <mutex>

#include "oss/oss_client.h"

namespace quorvane::app {
namespace {

constexpr auto kRequestWait = std::chrono::seconds(120);

std::unique_ptr<oss::OSSClient> makeClient(const StoreAccess& a) {
    std::shared_ptr<oss::OSSCredentialProvider> provider;
    if (a.token.empty()) {
        provider = std::make_shared<oss::OSSPlainTextAKSKPairCredentialProvider>(a.keyId, a.secret);
    } else {
        auto token = std::make_shared<oss::OSSFederationToken>();
        token->tAccessKey = a.keyId;
        token->tSecretKey = a.secret;
        token->tToken = a.token;
        token->expirationTimeInGMTFormat = a.expire;
        provider = std::make_shared<oss::OSSFederationCredentialProvider>([token] { return token; });
    }
    oss::OSSClientConfiguration config;
    config.caFile = a.caFile;
    config.maxRetryCount = 1;
    config.region = a.region;
    config.signatureVersion = a.signatureVersion == 1 ? oss::OSSSignatureVersion::V1 : oss::OSSSignatureVersion::V4;
    return std::make_unique<oss::OSSClient>(a.endpoint, provider, config);
}

std::optional<std::string> header(const foundation::Headers& headers, const std::string& name) {
    for (const auto& [key, value] : headers)
        if (key.size() == name.size() &&
            std::equal(key.begin(), key.end(), name.begin(), [](char x, char y) { return std::tolower(x) == y; }))
            return value;
    return std::nullopt;
}

}  // namespace

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
        std::optional<StoredObject> stored;
        if (auto result = task.result(); result && !task.isFaulted()) {
            StoredObject object;
            object.size = static_cast<std::uint64_t>(result->contentLength);
            if (auto crc = header(result->httpResponseHeaderFields, "x-oss-hash-crc64ecma")) {
                std::uint64_t value = 0;
                auto [end, ec] = std::from_chars(crc->data(), crc->data() + crc->size(), value);
                if (ec == std::errc() && end == crc->data() + crc->size()) object.crc64 = value;
            }
            stored = object;
        }
        answered(index, stored);
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
    impl->client = makeClient(access);
    impl->bucket = access.bucket;
    impl->keys = std::move(keys);
    impl->answered = std::move(answered);
    for (std::size_t i = 0; i < std::max<std::size_t>(window, 1); ++i) impl->sendNext();
    return std::shared_ptr<StoredObjectLookup>(new StoredObjectLookup(std::move(impl)));
}

StoredObjectLookup::~StoredObjectLookup() { impl_->cancel(); }

std::string putEmptyObject(const StoreAccess& access, const std::string& key, std::string& code) {
    auto client = makeClient(access);
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
        code = error->userInfo.is_object() && error->userInfo.contains("Code") && error->userInfo["Code"].is_string()
                   ? error->userInfo["Code"].get<std::string>()
                   : std::to_string(error->code);
        return error->description.empty() ? error->toString() : error->description;
    }
    return {};
}

}  // namespace quorvane::app
