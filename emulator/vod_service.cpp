// VOD OpenAPI front: common parameters, signature and token checks, action dispatch.
#include "emulator/vod_service.h"

#include <set>

#include "emulator/vod_signature_check.h"

namespace quorvane::emulator {
namespace {

bool authorized(Exchange& ex, const Params& params, const Pairs& pairs) {
    for (const char* name : {"AccessKeyId", "SignatureMethod", "SignatureVersion", "SignatureNonce", "Signature"})
        if (!required(ex, params, name)) return false;
    if (params.at("SignatureMethod") != "HMAC-SHA1") {
        vodError(ex, 400, "InvalidParameter", "The specified parameter \"SignatureMethod\" is not valid.");
        return false;
    }
    if (!ex.impl.options.verifySignatures) return true;
    auto token = params.count("SecurityToken") ? std::optional(params.at("SecurityToken")) : std::nullopt;
    auto key = ex.impl.sts.check(params.at("AccessKeyId"), token, ex.impl.now());
    if (!key.known) {
        vodError(ex, 404, "InvalidAccessKeyId.NotFound", "Specified access key is not found.");
        return false;
    }
    if (key.sts && key.token != TokenState::Valid) {
        if (key.token == TokenState::Expired)
            vodError(ex, 403, "InvalidSecurityToken.Expired", "Specified SecurityToken is expired.");
        else if (key.token == TokenState::Missing)
            vodError(ex, 400, "MissingSecurityToken", "SecurityToken is mandatory for this action.");
        else
            vodError(ex, 400, "InvalidSecurityToken.MismatchWithAccessKey",
                     "Specified SecurityToken mismatch with the AccessKey.");
        return false;
    }
    if (!rpcSignatureMatches("GET", pairs, key.secret)) {
        vodError(ex, 400, "SignatureDoesNotMatch",
                 "Specified signature is not matched with our calculation. server string to sign is:" +
                     rpcStringToSign("GET", pairs));
        return false;
    }
    std::lock_guard lock(ex.impl.mutex);  // a replayed request is refused, as the service does
    if (!ex.impl.nonces.insert(params.at("AccessKeyId") + "/" + params.at("SignatureNonce")).second) {
        vodError(ex, 400, "SignatureNonceUsed", "Specified signature nonce was used already.");
        return false;
    }
    return true;
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
    if (ex.req.method == "GET") return ex.hasParam("Action");
    auto type = toLower(ex.header("Content-Type").value_or(""));
    return ex.req.method == "POST" && type.find("application/x-www-form-urlencoded") != std::string::npos;
}

void serveVod(Exchange& ex) {
    ex.record.service = "vod";
    if (ex.req.method == "POST") return serveUploadProgress(ex);
    auto pairs = ex.query();
    Params params(pairs.begin(), pairs.end());
    ex.record.operation = params["Action"];
    auto injected = [&](const Fault& f) { vodError(ex, f.status, f.code, f.message.empty() ? f.code : f.message); };
    if (ex.applyFault(ex.record.operation, injected)) return;
    if (!required(ex, params, "Version")) return;
    if (params["Version"] != "2017-03-21")
        return vodError(ex, 400, "InvalidVersion", "Specified parameter Version is not valid.");
    if (!authorized(ex, params, pairs)) return;
    const auto& action = ex.record.operation;
    if (action == "CreateUploadVideo") return createUploadVideo(ex, params, pairs);
    if (action == "RefreshUploadVideo") return refreshUploadVideo(ex, params);
    if (action == "CreateUploadImage") return createUploadImage(ex, params, pairs);
    vodError(ex, 404, "InvalidAction.NotFound", "Specified api is not found, please check your url and method.");
}

}  // namespace quorvane::emulator
