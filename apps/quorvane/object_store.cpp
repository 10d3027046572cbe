#include "object_store.h"

#include <algorithm>
#include <memory>

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

std::vector<std::optional<StoredObject>> headObjects(const StoreAccess& access, const std::vector<std::string>& keys,
                                                     std::size_t inFlight) {
    // One client, so its connections are reused; a window of requests in flight, answers taken in order.
    auto client = makeClient(access);
    struct Pending {
        std::shared_ptr<oss::OSSHeadObjectRequest> request;
        oss::OSSTask<oss::OSSHeadObjectResult>::Ptr task;
    };
    std::vector<Pending> pending(keys.size());
    std::vector<std::optional<StoredObject>> stored(keys.size());
    auto send = [&](std::size_t i) {
        pending[i].request = std::make_shared<oss::OSSHeadObjectRequest>();
        pending[i].request->bucketName = access.bucket;
        pending[i].request->objectKey = keys[i];
        pending[i].task = client->headObject(pending[i].request);
    };
    inFlight = std::max<std::size_t>(inFlight, 1);
    for (std::size_t i = 0; i < keys.size() && i < inFlight; ++i) send(i);
    for (std::size_t i = 0; i < keys.size(); ++i) {
        auto& [request, task] = pending[i];
        bool answered = task->waitFor(kRequestWait);
        if (!answered) request->cancel();
        if (i + inFlight < keys.size()) send(i + inFlight);
        auto result = answered ? task->result() : nullptr;
        if (!answered || task->isFaulted() || !result) continue;
        StoredObject object;
        object.size = static_cast<std::uint64_t>(result->contentLength);
        if (auto crc = header(result->httpResponseHeaderFields, "x-oss-hash-crc64ecma")) {
            try {
                object.crc64 = std::stoull(*crc);
            } catch (const std::exception&) {
            }
        }
        stored[i] = object;
    }
    return stored;
}

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
