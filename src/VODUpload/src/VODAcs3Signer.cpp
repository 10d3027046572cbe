#include "VODUpload/src/VODAcs3Signer.h"

#include <algorithm>

#include "foundation/crypto.h"
#include "oss/oss_header_text.h"

namespace quorvane {

std::string VODAcs3Signer::canonicalQuery(const std::vector<std::pair<std::string, std::string>>& query) {
    std::vector<std::pair<std::string, std::string>> encoded;
    for (const auto& [name, value] : query)
        encoded.emplace_back(foundation::urlEncode(name), foundation::urlEncode(value));
    std::sort(encoded.begin(), encoded.end());
    std::string out;
    for (const auto& [name, value] : encoded) out += (out.empty() ? "" : "&") + name + "=" + value;
    return out;
}

VODAcs3Signed VODAcs3Signer::sign(const VODAcs3Request& request, const std::string& keyId,
                                  const std::string& keySecret) {
    VODAcs3Signed out;
    std::string payloadHash = foundation::sha256Hex(request.body);
    // Names are lower-case already; every header but Authorization is signed.
    foundation::Headers headers = {{"host", request.host},
                                   {"x-acs-action", request.action},
                                   {"x-acs-content-sha256", payloadHash},
                                   {"x-acs-date", request.date},
                                   {"x-acs-signature-nonce", request.nonce},
                                   {"x-acs-version", request.version}};
    if (!request.securityToken.empty()) headers.emplace_back("x-acs-security-token", request.securityToken);
    std::sort(headers.begin(), headers.end());

    std::string canonicalHeaders, signedHeaders;
    for (const auto& [name, value] : headers) {
        canonicalHeaders += name + ":" + oss::trimBlanks(value) + "\n";
        signedHeaders += (signedHeaders.empty() ? "" : ";") + name;
    }
    out.canonicalQuery = canonicalQuery(request.query);
    out.canonicalRequest = request.method + "\n" + request.path + "\n" + out.canonicalQuery + "\n" + canonicalHeaders +
                           "\n" + signedHeaders + "\n" + payloadHash;
    out.stringToSign = std::string(kVODAcs3Algorithm) + "\n" + foundation::sha256Hex(out.canonicalRequest);
    out.signature = foundation::hexLower(foundation::hmacSha256Raw(keySecret, out.stringToSign));
    headers.emplace_back("Authorization", std::string(kVODAcs3Algorithm) + " Credential=" + keyId +
                                              ",SignedHeaders=" + signedHeaders + ",Signature=" + out.signature);
    out.headers = std::move(headers);
    return out;
}

}  // namespace quorvane
