// Presigned URLs with V4 query-string signatures: the signature and what it covers ride in the query
// (x-oss-signature-version, x-oss-credential, x-oss-date, x-oss-expires, the token under STS), the
// canonical request is the header form's with those parameters in its query and an unsigned payload.
#include "oss/oss_client.h"
#include "oss/oss_client_impl.h"
#include "oss/oss_signer_v4.h"

namespace quorvane::oss {

std::optional<std::string> OSSClient::presignObjectURL(const OSSPresignRequest& r, Error* error) const {
    auto fail = [&](const std::string& message) -> std::optional<std::string> {
        if (error) *error = makeClientError(OSSClientErrorCodeInvalidArgument, message);
        return std::nullopt;
    };
    const auto& c = *impl_;
    if (!c.endpoint) return fail(c.endpointError);
    if (r.method != "GET" && r.method != "PUT" && r.method != "HEAD") return fail("Only GET, HEAD and PUT URLs are signed");
    if (!isValidBucketName(r.bucketName)) return fail("The bucket name \"" + r.bucketName + "\" is not valid");
    if (r.objectKey.empty()) return fail("The object key is empty");
    if (r.expires.count() < 1 || r.expires > std::chrono::hours(24 * 7))
        return fail("A presigned URL lasts from 1 second to 7 days");
    if (c.region.empty()) return fail(c.signerError.empty() ? "V4 signatures need the bucket's region" : c.signerError);
    if (c.conf.signatureVersion == OSSSignatureVersion::V1) return fail("Presigned URLs are signed V4 only");
    auto provider = c.currentProvider();
    if (!provider || !provider->providesSecret()) return fail("Presigned URLs need the access key secret");
    Error credentialError;
    auto credentials = provider->currentCredentials(&credentialError);
    if (!credentials || credentials->accessKeySecret.empty()) {
        if (error) *error = credentials ? makeClientError(OSSClientErrorCodeSignFailed, "No access key secret") : credentialError;
        return std::nullopt;
    }
    const auto dateTime = v4DateTime(c.signingTime());
    const auto date = dateTime.substr(0, 8);
    OSSQuery query{{"x-oss-signature-version", kOSSV4Algorithm},
                   {"x-oss-credential", credentials->accessKeyId + "/" + v4Scope(date, c.region)},
                   {"x-oss-date", dateTime},
                   {"x-oss-expires", std::to_string(r.expires.count())}};
    if (credentials->securityToken) query.emplace_back("x-oss-security-token", *credentials->securityToken);
    foundation::Headers headers;
    if (!r.contentType.empty()) headers.emplace_back("Content-Type", r.contentType);
    const auto canonical = v4CanonicalRequest(r.method, r.bucketName, r.objectKey, query, headers, {});
    query.emplace_back("x-oss-signature", v4Signature(credentials->accessKeySecret, date, c.region,
                                                      v4StringToSign(dateTime, c.region, canonical)));
    return buildUrl(*c.endpoint, r.bucketName, r.objectKey, query);
}

}  // namespace quorvane::oss
