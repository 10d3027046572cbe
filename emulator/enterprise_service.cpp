// Enterprise API: the object-storage configuration and the VOD upload ticket, behind an access token.
#include <regex>

#include "emulator/emulator_impl.h"

namespace quorvane::emulator {
namespace {

void answer(Exchange& ex, EnterpriseCall& call, int status, Value body) {
    ex.res.status = status;
    ex.res.set_content(body.dump(), "application/json;charset=utf-8");
    call.status = status;
    call.answer = std::move(body);
    std::lock_guard lock(ex.impl.mutex);
    ex.impl.enterpriseCalls.push_back(call);
}

void refuse(Exchange& ex, EnterpriseCall& call, int code, const std::string& message) {
    ex.record.errorCode = std::to_string(code);
    answer(ex, call, ex.impl.options.enterpriseErrorStatus, {{"code", code}, {"msg", message}, {"message", message}});
}

void ossConfig(Exchange& ex, EnterpriseCall& call) {
    std::optional<Value> custom;
    {
        std::lock_guard lock(ex.impl.mutex);
        custom = ex.impl.ossConfigAnswer;
    }
    if (custom) return answer(ex, call, 200, *custom);
    const auto& o = ex.impl.options;
    answer(ex, call, 200, {{"accessKeyId", o.accessKeyId}, {"accessKeySecret", o.accessKeySecret},
                           {"bucket", o.bucket}, {"endpoint", ex.impl.endpoint()}});
}

void ticket(Exchange& ex, EnterpriseCall& call) {
    std::optional<Value> custom;
    {
        std::lock_guard lock(ex.impl.mutex);
        custom = ex.impl.ticketAnswer;
    }
    if (custom) return answer(ex, call, 200, *custom);
    if (!call.body.is_object() || !call.body.contains("file_name") || !call.body["file_name"].is_string() ||
        call.body["file_name"].get<std::string>().empty())
        return refuse(ex, call, 400, "file_name is required");
    auto fileName = call.body["file_name"].get<std::string>();
    auto t = ex.impl.newVideoTicket(fileName, fileName, call.body, "ticket");
    answer(ex, call, 200, {{"videoId", t.videoId}, {"uploadAddress", t.uploadAddress}, {"uploadAuth", t.uploadAuth}});
}

}  // namespace

void serveEnterprise(Exchange& ex) {
    static const std::regex ticketPath("/enterprise-api/v2/([^/]+)/ticket");
    ex.record.service = "enterprise";
    EnterpriseCall call;
    call.accessToken = ex.param("access_token").value_or("");
    std::smatch m;
    bool isConfig = ex.req.method == "GET" && ex.req.path == "/enterprise-api/oss/config";
    bool isTicket = ex.req.method == "POST" && std::regex_match(ex.req.path, m, ticketPath);
    call.operation = ex.record.operation = isConfig ? "GetOssConfig" : isTicket ? "CreateTicket" : "Unknown";
    if (isTicket) call.enterpriseId = m[1];
    if (auto body = ex.readBodyText(1 << 20); body && !body->empty())
        call.body = foundation::parseJson(*body).value_or(nullptr);
    auto injected = [&](const Fault& f) {
        ex.record.errorCode = f.code;
        answer(ex, call, f.status, {{"code", f.code}, {"msg", f.message}, {"message", f.message}});
    };
    if (ex.applyFault(call.operation, injected)) return;
    if (!isConfig && !isTicket) return refuse(ex, call, 404, "not found");
    if (call.accessToken != ex.impl.options.enterpriseAccessToken) return refuse(ex, call, 401, "invalid access_token");
    if (isTicket && !ex.impl.options.enterpriseId.empty() && call.enterpriseId != ex.impl.options.enterpriseId)
        return refuse(ex, call, 403, "unknown enterprise");
    if (isConfig) return ossConfig(ex, call);
    ticket(ex, call);
}

}  // namespace quorvane::emulator
