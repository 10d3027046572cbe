#pragma once
// Header signatures V4 (OSS4-HMAC-SHA256): a canonical request over the verb, the encoded path, every
// query parameter and the signed headers, hashed into a string to sign that carries the date and the
// region, signed with a key derived from the secret for that day, region and service. The payload is
// never hashed (UNSIGNED-PAYLOAD), so a part streams from disk as it is read.
#include <string>
#include <string_view>
#include <vector>

#include "oss/oss_signer.h"

namespace quorvane::oss {

inline constexpr const char* kOSSV4Algorithm = "OSS4-HMAC-SHA256";
inline constexpr const char* kOSSUnsignedPayload = "UNSIGNED-PAYLOAD";

// "yyyymmddTHHMMSSZ" in UTC, the form of "x-oss-date" under V4.
std::string v4DateTime(foundation::SystemTime t);
// RFC 3986: everything but A-Z a-z 0-9 - _ . ~ as upper-case %XY.
std::string v4Encode(std::string_view text);
// "/bucket/key" ("/bucket/" without a key, "/" without a bucket), encoded, '/' kept.
std::string v4CanonicalUri(const std::string& bucket, const std::string& objectKey);
// Every parameter, encoded, sorted by encoded name; a parameter without a value (or with an empty one)
// is its bare name.
std::string v4CanonicalQuery(const OSSQuery& query);
// Lower-cased, de-duplicated, sorted names of the optional headers a request signs; the ones that are
// always signed (content-type, content-md5, x-oss-*) are left out.
std::vector<std::string> v4AdditionalHeaderNames(const std::vector<std::string>& names);
// content-type, content-md5, every x-oss-* and the additional headers present in `headers`: names lower
// case, values trimmed, sorted, each "name:value\n".
std::string v4CanonicalHeaders(const foundation::Headers& headers, const std::vector<std::string>& additional);
std::string v4CanonicalRequest(const std::string& method, const std::string& bucket, const std::string& objectKey,
                               const OSSQuery& query, const foundation::Headers& headers,
                               const std::vector<std::string>& additional);
// "<yyyymmdd>/<region>/oss/aliyun_v4_request".
std::string v4Scope(const std::string& date, const std::string& region);
std::string v4StringToSign(const std::string& dateTime, const std::string& region, const std::string& canonicalRequest);
// Lower-case hex HMAC-SHA256 of the string to sign under the key derived for the day and region.
std::string v4Signature(const std::string& secret, const std::string& date, const std::string& region,
                        const std::string& stringToSign);

// Signs with V4 for one region. The credential provider must hand out the secret: a provider that
// only signs V1 strings through a block of its own cannot sign here.
class OSSV4Signer : public OSSRequestSigner {
public:
    // `additionalHeaders`: optional headers to sign as well (for instance "host"), when a request has them.
    OSSV4Signer(std::string region, std::vector<std::string> additionalHeaders = {});
    std::optional<Error> sign(const std::string& method, const std::string& bucket, const std::string& objectKey,
                              const OSSQuery& query, foundation::Headers& headers, OSSCredentialProvider& provider,
                              foundation::SystemTime now) const override;
    const std::string& region() const { return region_; }

private:
    std::string region_;
    std::vector<std::string> additional_;
};

}  // namespace quorvane::oss
