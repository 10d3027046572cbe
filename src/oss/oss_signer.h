#pragma once
// Request signers, one per client: V1 here, V4 in oss_signer_v4.h.
// Header signatures V1: the string to sign from the verb, Content-MD5, Content-Type, the date, the
// "x-oss-" headers and the resource, signed by the credential provider. Pure functions but
// signRequest, which asks the provider.
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/dates.h"
#include "foundation/error.h"
#include "foundation/http_client.h"
#include "oss/credential_provider.h"

namespace quorvane::oss {

// Query parameters, decoded; nullopt value = a bare name ("?uploads").
using OSSQuery = std::vector<std::pair<std::string, std::optional<std::string>>>;

// Whether a query parameter is a signed sub-resource.
bool isSignedSubResource(const std::string& name);
// "x-oss-" headers: lower-cased names, trimmed values, sorted, each "name:value\n".
std::string canonicalizedOSSHeaders(const foundation::Headers& headers);
// "/bucket/key" (key decoded), "/bucket/" without a key, "/" without a bucket; then the signed
// sub-resources, sorted, after '?'.
std::string canonicalizedResource(const std::string& bucket, const std::string& objectKey, const OSSQuery& query);
// VERB \n Content-MD5 \n Content-Type \n Date \n headers resource; the Date line is "x-oss-date"
// when that header is present.
std::string stringToSign(const std::string& method, const foundation::Headers& headers,
                         const std::string& canonicalResource);

// Adds "Date" (from `now`), "x-oss-security-token" (under STS) and "Authorization" to `headers`.
// Returns the error when the provider cannot sign.
std::optional<Error> signRequest(const std::string& method, const std::string& bucket, const std::string& objectKey,
                                 const OSSQuery& query, foundation::Headers& headers, OSSCredentialProvider& provider,
                                 foundation::SystemTime now);

// Adds what authenticates one request to its headers: a date, the security token under STS, and
// "Authorization". Signers hold no state that changes, so one serves every request of a client.
class OSSRequestSigner {
public:
    virtual ~OSSRequestSigner() = default;
    // The error when the provider cannot sign; nothing is sent then.
    virtual std::optional<Error> sign(const std::string& method, const std::string& bucket,
                                      const std::string& objectKey, const OSSQuery& query,
                                      foundation::Headers& headers, OSSCredentialProvider& provider,
                                      foundation::SystemTime now) const = 0;
};

class OSSV1Signer : public OSSRequestSigner {
public:
    std::optional<Error> sign(const std::string& method, const std::string& bucket, const std::string& objectKey,
                              const OSSQuery& query, foundation::Headers& headers, OSSCredentialProvider& provider,
                              foundation::SystemTime now) const override {
        return signRequest(method, bucket, objectKey, query, headers, provider, now);
    }
};

}  // namespace quorvane::oss
