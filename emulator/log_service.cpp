// Log service web tracking: every GET to /logstores/<logstore>/track becomes one recorded event.
#include "emulator/emulator_impl.h"

namespace quorvane::emulator {
namespace {

void logError(Exchange& ex, int status, const std::string& code, const std::string& message) {
    ex.record.errorCode = code;
    ex.res.status = status;
    ex.res.set_content(Value{{"errorCode", code}, {"errorMessage", message}}.dump(), "application/json");
}

}  // namespace

void serveLogService(Exchange& ex) {
    ex.record.service = "log";
    ex.record.operation = "PutWebtracking";
    auto requestId = newRequestId();
    ex.res.set_header("x-log-requestid", requestId);
    auto injected = [&](const Fault& f) { logError(ex, f.status, f.code, f.message.empty() ? f.code : f.message); };
    if (ex.applyFault(ex.record.operation, injected)) return;
    const std::string prefix = "/logstores/";
    auto rest = ex.req.path.substr(prefix.size());
    auto slash = rest.find('/');
    if (ex.req.method != "GET" || slash == std::string::npos || slash == 0 || rest.substr(slash) != "/track")
        return logError(ex, 404, "ServiceNotFound", "The requested path does not exist.");
    if (ex.record.query.size() > 16 * 1024)
        return logError(ex, 400, "PostBodyTooLarge", "The request is larger than 16 KB.");
    auto params = ex.query();
    if (ex.param("APIVersion") != std::optional<std::string>("0.6.0"))
        return logError(ex, 400, "InvalidParameter", "APIVersion must be 0.6.0.");
    LogEvent event{rest.substr(0, slash), Value::object()};
    for (const auto& [k, v] : params) event.params[k] = v;
    {
        std::lock_guard lock(ex.impl.mutex);
        ex.impl.logEvents.push_back(std::move(event));
    }
    ex.res.status = 200;
}

}  // namespace quorvane::emulator
