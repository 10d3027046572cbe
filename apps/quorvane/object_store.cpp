#include "object_store.h"

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

std::optional<StoredObject> headObject(const StoreAccess& access, const std::string& key) {
    auto client = makeClient(access);
    auto request = std::make_shared<oss::OSSHeadObjectRequest>();
    request->bucketName = access.bucket;
    request->objectKey = key;
    auto task = client->headObject(request);
    if (!task->waitFor(kRequestWait)) {
        request->cancel();
        return std::nullopt;
    }
    auto result = task->result();
    if (task->isFaulted() || !result) return std::nullopt;
    StoredObject stored;
    stored.size = static_cast<std::uint64_t>(result->contentLength);
    if (auto crc = header(result->httpResponseHeaderFields, "x-oss-hash-crc64ecma")) {
        try {
            stored.crc64 = std::stoull(*crc);
        } catch (const std::exception&) {
        }
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
