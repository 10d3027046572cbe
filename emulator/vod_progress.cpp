// VOD upload-progress actions (form-encoded POSTs): ReportUploadProgress stores, GetUploadProgress answers.
#include "emulator/vod_service.h"

namespace quorvane::emulator {
namespace {

// Shared with the SDK as the service's own constants: the AuthInfo key and the placeholder signing key.
constexpr const char* kAuthKey = "Kq7TzR*2VmLp84Hd";
constexpr const char* kSigningKey = "QZKP";

// The body signs itself: everything before "&Signature=" is the string the client signed.
bool bodySignatureValid(const std::string& body, const Params& params) {
    auto at = body.rfind("&Signature=");
    if (at == std::string::npos || !params.count("Signature")) return false;
    auto stringToSign = "POST&" + percentEncode("/") + "&" + body.substr(0, at);
    return foundation::hmacSha1Base64(std::string(kSigningKey) + "&", stringToSign) == params.at("Signature");
}

bool authInfoValid(const Params& p, bool withDevice) {
    auto field = [&](const char* k) { return p.count(k) ? p.at(k) : std::string(); };
    auto text = (withDevice ? field("ClientId") + "|" : "") + kAuthKey + "|" + field("AuthTimestamp");
    return !field("AuthInfo").empty() && foundation::md5Hex(text) == field("AuthInfo");
}

Value progressEntry(const Value& report) {
    Value out = Value::object();
    for (const char* k : {"FileHash", "FileName", "FileSize", "FileCreateTime", "UploadId", "VideoId", "UploadRatio",
                          "UploadPoint", "DonePartsCount", "PartSize", "UploadAddress"})
        out[k] = report.value(k, "");
    return out;
}

void getUploadProgress(Exchange& ex, const Params& params) {
    auto list = foundation::parseJson(params.count("UploadInfoList") ? params.at("UploadInfoList") : "");
    if (!list || !list->is_array())
        return vodError(ex, 400, "InvalidParameter", "The specified parameter \"UploadInfoList\" is not valid.");
    Value found = Value::array();
    std::lock_guard lock(ex.impl.mutex);
    for (const auto& item : *list) {
        if (!item.is_object()) continue;
        auto hash = item.value("FileHash", "");
        for (auto it = ex.impl.reports.rbegin(); it != ex.impl.reports.rend(); ++it) {
            if (it->action == "ReportUploadProgress" && it->fields.value("FileHash", "") == hash) {
                found.push_back(progressEntry(it->fields));
                break;
            }
        }
    }
    ex.res.status = 200;
    Value body = {{"RequestId", newUuid()}, {"UploadProgress", {{"UploadProgressList", found}}}};
    ex.res.set_content(body.dump(), "application/json;charset=utf-8");
}

}  // namespace

void serveUploadProgress(Exchange& ex) {
    auto body = ex.readBodyText(64 * 1024);
    auto pairs = body ? parseQuery(*body, true) : Pairs{};
    Params params(pairs.begin(), pairs.end());
    ex.record.operation = params.count("Action") ? params["Action"] : "";
    auto injected = [&](const Fault& f) { vodError(ex, f.status, f.code, f.message.empty() ? f.code : f.message); };
    if (ex.applyFault(ex.record.operation, injected)) return;
    if (!body) return vodError(ex, 400, "InvalidParameter", "The request body is too large.");
    const auto& action = ex.record.operation;
    if (action != "ReportUploadProgress" && action != "GetUploadProgress")
        return vodError(ex, 404, "InvalidAction.NotFound", "Specified api is not found, please check your url and method.");
    if (params["Version"] != "2017-03-14")
        return vodError(ex, 400, "InvalidVersion", "Specified parameter Version is not valid.");
    ProgressReport report{action, paramsToJson(pairs), bodySignatureValid(*body, params),
                          authInfoValid(params, action == "ReportUploadProgress")};
    {
        std::lock_guard lock(ex.impl.mutex);
        ex.impl.reports.push_back(report);
    }
    if (ex.impl.options.verifySignatures && !report.signatureValid)
        return vodError(ex, 400, "SignatureDoesNotMatch", "Specified signature is not matched with our calculation.");
    if (ex.impl.options.verifySignatures && !report.authInfoValid)
        return vodError(ex, 403, "Forbidden", "AuthInfo is not valid.");
    if (action == "GetUploadProgress") return getUploadProgress(ex, params);
    vodAnswer(ex, {{"RequestId", newUuid()}});
}

}  // namespace quorvane::emulator
