// VOD OpenAPI front: common parameters, signature and token checks, action dispatch.
#include "emulator/vod_service.h"

#include <algorithm>
#include <chrono>
#include <set>

#include "emulator/vod_signature_check.h"
#include "foundation/crypto.h"

namespace quorvane::emulator {
namespace {

// The secret of `keyId` when the key is known and its token (if an STS key) valid; answers the
// service's error otherwise.
std::optional<std::string> secretFor(Exchange& ex, const std::string& keyId, const std::optional<std::string>& token) {
    auto key = ex.impl.sts.check(keyId, token, ex.impl.now());
    if (!key.known) {
        vodError(ex, 404, "InvalidAccessKeyId.NotFound", "Specified access key is not found.");
        return std::nullopt;
    }
    if (key.sts && key.token != TokenState::Valid) {
        if (key.token == TokenState::Expired)
            vodError(ex, 403, "InvalidSecurityToken.Expired", "Specified SecurityToken is expired.");
        else if (key.token == TokenState::Missing)
            vodError(ex, 400, "MissingSecurityToken", "SecurityToken is mandatory for this action.");
        else
            vodError(ex, 400, "InvalidSecurityToken.MismatchWithAccessKey",
                     "Specified SecurityToken mismatch with the AccessKey.");
        return std::nullopt;
    }
    return key.secret;
}

// A replayed request is refused, as the service does.
bool freshNonce(Exchange& ex, const std::string& keyId, const std::string& nonce) {
    std::lock_guard lock(ex.impl.mutex);
    if (ex.impl.nonces.insert(keyId + "/" + nonce).second) return true;
    vodError(ex, 400, "SignatureNonceUsed", "Specified signature nonce was used already.");
    return false;
}

bool rpcAuthorized(Exchange& ex, const Params& params, const Pairs& pairs) {
    for (const char* name : {"AccessKeyId", "SignatureMethod", "SignatureVersion", "SignatureNonce", "Signature"})
        if (!required(ex, params, name)) return false;
    if (params.at("SignatureMethod") != "HMAC-SHA1") {
        vodError(ex, 400, "InvalidParameter", "The specified parameter \"SignatureMethod\" is not valid.");
        return false;
    }
    if (!ex.impl.options.verifySignatures) return true;
    auto token = params.count("SecurityToken") ? std::optional(params.at("SecurityToken")) : std::nullopt;
    auto secret = secretFor(ex, params.at("AccessKeyId"), token);
    if (!secret) return false;
    if (!rpcSignatureMatches("GET", pairs, *secret)) {
        vodError(ex, 400, "SignatureDoesNotMatch",
                 "Specified signature is not matched with our calculation. server string to sign is:" +
                     rpcStringToSign("GET", pairs));
        return false;
    }
    return freshNonce(ex, params.at("AccessKeyId"), params.at("SignatureNonce"));
}

// The ACS3 headers every request carries (x-acs-action and x-acs-version are checked before).
constexpr const char* kAcs3Required[] = {"x-acs-date", "x-acs-signature-nonce", "x-acs-content-sha256"};

bool acs3Authorized(Exchange& ex, const Pairs& pairs, const std::string& authorization) {
    auto auth = parseAcs3Authorization(authorization);
    if (!auth) {
        vodError(ex, 400, "InvalidParameter", "The specified parameter \"Authorization\" is not valid.");
        return false;
    }
    for (const char* name : kAcs3Required)
        if (ex.header(name).value_or("").empty()) {
            vodError(ex, 400, "MissingParameter",
                     std::string("The input parameter \"") + name +
                         "\" that is mandatory for processing this request is not supplied.");
            return false;
        }
    auto date = foundation::parseIso8601Utc(*ex.header("x-acs-date"));
    if (!date) {
        vodError(ex, 400, "InvalidTimeStamp.Format", "Specified time stamp or date value is not well formatted.");
        return false;
    }
    auto now = ex.impl.now();
    if ((*date > now ? *date - now : now - *date) > std::chrono::minutes(15)) {
        vodError(ex, 400, "InvalidTimeStamp.Expired", "Specified time stamp or date value is expired.");
        return false;
    }
    // Host and every x-acs-* header sent must be signed, or a proxy could change them unseen.
    Pairs signedHeaders;
    for (const auto& name : auth->signedHeaders) signedHeaders.emplace_back(name, ex.header(name).value_or(""));
    auto isSigned = [&](const std::string& name) {
        return std::find(auth->signedHeaders.begin(), auth->signedHeaders.end(), name) != auth->signedHeaders.end();
    };
    for (const auto& [name, value] : ex.headers()) {
        auto lower = toLower(name);
        if ((lower == "host" || startsWith(lower, "x-acs-")) && !isSigned(lower)) {
            vodError(ex, 400, "IncompleteSignature",
                     "The request signature does not conform to Aliyun standards: header \"" + lower +
                         "\" is not signed.");
            return false;
        }
    }
    if (!ex.impl.options.verifySignatures) return true;
    auto secret = secretFor(ex, auth->keyId, ex.header("x-acs-security-token"));
    if (!secret) return false;
    auto payloadHash = foundation::sha256Hex(ex.readBodyText(1 << 20).value_or(""));
    if (toLower(*ex.header("x-acs-content-sha256")) != payloadHash) {
        vodError(ex, 400, "SignatureDoesNotMatch", "Specified x-acs-content-sha256 is not the hash of the body.");
        return false;
    }
    auto canonical = acs3CanonicalRequest(ex.req.method, ex.req.path, pairs, signedHeaders, payloadHash);
    if (toLower(auth->signature) != acs3Signature(*secret, canonical)) {
        vodError(ex, 400, "SignatureDoesNotMatch",
                 // The string to sign, not the canonical request: that one carries the security token.
                 "Specified signature is not matched with our calculation. server string to sign is:" +
                     acs3StringToSign(canonical));
        return false;
    }
    return freshNonce(ex, auth->keyId, *ex.header("x-acs-signature-nonce"));
}

}  // namespace

void vodAnswer(Exchange& ex, const Value& body) {
    ex.res.status = 200;
    ex.res.set_content(body.dump(), "application/json;charset=utf-8");
}

void vodError(Exchange& ex, int status, const std::string& code, const std::string& message) {
    ex.record.errorCode = code;
    ex.res.status = status;
    Value body = {{"RequestId", newUuid()},
                  {"HostId", "vod." + ex.impl.options.region + ".aliyuncs.com"},
                  {"Code", code},
                  {"Message", message}};
    ex.res.set_content(body.dump(), "application/json;charset=utf-8");
}

std::optional<std::string> required(Exchange& ex, const Params& params, const std::string& name) {
    auto it = params.find(name);
    if (it != params.end() && !it->second.empty()) return it->second;
    vodError(ex, 400, "MissingParameter",
             "The input parameter \"" + name + "\" that is mandatory for processing this request is not supplied.");
    return std::nullopt;
}

Value paramsToJson(const Pairs& pairs) {
    Value out = Value::object();
    for (const auto& [k, v] : pairs) out[k] = v;
    return out;
}

bool isVodRequest(const Exchange& ex) {
    if (ex.req.path != "/") return false;
    if (ex.req.method == "GET") return ex.hasParam("Action") || ex.header("x-acs-action").has_value();
    auto type = toLower(ex.header("Content-Type").value_or(""));
    return ex.req.method == "POST" && type.find("application/x-www-form-urlencoded") != std::string::npos;
}

void serveVod(Exchange& ex) {
    ex.record.service = "vod";
    if (ex.req.method == "POST") return serveUploadProgress(ex);
    auto pairs = ex.query();
    Params params(pairs.begin(), pairs.end());
    // ACS3 requests name the action and version in headers; the query holds the action's parameters.
    auto authorization = ex.header("Authorization").value_or("");
    bool acs3 = isAcs3Authorization(authorization);
    if (acs3 && ex.header("x-acs-action")) params["Action"] = *ex.header("x-acs-action");
    const std::string versionName = acs3 ? "x-acs-version" : "Version";
    if (acs3) params[versionName] = ex.header(versionName).value_or("");
    ex.record.operation = params["Action"];
    auto injected = [&](const Fault& f) { vodError(ex, f.status, f.code, f.message.empty() ? f.code : f.message); };
    if (ex.applyFault(ex.record.operation, injected)) return;
    if (acs3 && ex.record.operation.empty())
        return vodError(ex, 400, "MissingParameter",
                        "The input parameter \"x-acs-action\" that is mandatory for processing this request is "
                        "not supplied.");
    if (!required(ex, params, versionName)) return;
    if (params[versionName] != "2017-03-21")
        return vodError(ex, 400, "InvalidVersion", "Specified parameter Version is not valid.");
    if (!(acs3 ? acs3Authorized(ex, pairs, authorization) : rpcAuthorized(ex, params, pairs))) return;
    const auto& action = ex.record.operation;
    if (action == "CreateUploadVideo") return createUploadVideo(ex, params, pairs);
    if (action == "RefreshUploadVideo") return refreshUploadVideo(ex, params);
    if (action == "CreateUploadImage") return createUploadImage(ex, params, pairs);
    vodError(ex, 404, "InvalidAction.NotFound", "Specified api is not found, please check your url and method.");
}

}  // namespace quorvane::emulator
