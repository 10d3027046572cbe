// Request routing: every method and path reaches one dispatcher that picks the service.
#include "emulator/router.h"

#include "emulator/console.h"
#include "emulator/oss_service.h"
#include "foundation/log.h"

namespace quorvane::emulator {
namespace {

const char* const kAnyPath = "[\\s\\S]*";

// Requests whose body length cannot be told for sure: two lengths, a length that is not a number, or
// a length beside chunked coding. Whatever a server picked, a proxy in front might pick otherwise.
std::optional<std::string> framingProblem(const httplib::Request& req) {
    auto lengths = req.get_header_value_count("Content-Length");
    if (lengths == 0) return std::nullopt;
    if (lengths > 1) return "More than one Content-Length header.";
    auto value = req.get_header_value("Content-Length");
    if (value.empty() || value.size() > 19 || value.find_first_not_of("0123456789") != std::string::npos)
        return "The Content-Length header is not a number.";
    if (req.has_header("Transfer-Encoding")) return "Content-Length and Transfer-Encoding together.";
    return std::nullopt;
}

void route(CloudEmulator::Impl& impl, const httplib::Request& req, httplib::Response& res,
           const httplib::ContentReader* reader) {
    try {
        // The console's own polling is neither logged nor recorded: it would drown what it shows.
        if (req.path == kConsolePrefix || startsWith(req.path, std::string(kConsolePrefix) + "/"))
            return serveConsole(impl, req, res, reader);
        Exchange ex(impl, req, res, reader);
        if (auto problem = framingProblem(req)) {
            ex.refuseBody();
            return ossError(ex, "", 400, "InvalidArgument", *problem);
        }
        const auto& path = req.path;
        if (startsWith(path, "/enterprise-api/"))
            serveEnterprise(ex);
        else if (startsWith(path, "/logstores/"))
            serveLogService(ex);
        else if (startsWith(path, "/host/"))
            serveHostUpload(ex);
        else if (isVodRequest(ex))
            serveVod(ex);
        else
            serveOss(ex);
    } catch (const std::exception& e) {
        // A handler bug must not take the emulator down: answer 500 and say why in the log.
        foundation::logLine(std::string("quorvane-cloud: internal error: ") + e.what());
        res.status = 500;
        res.set_content("", "text/plain");
    }
}

}  // namespace

void installRoutes(httplib::Server& server, CloudEmulator::Impl& impl) {
    auto plain = [&impl](const httplib::Request& req, httplib::Response& res) { route(impl, req, res, nullptr); };
    auto streamed = [&impl](const httplib::Request& req, httplib::Response& res, const httplib::ContentReader& reader) {
        route(impl, req, res, &reader);
    };
    server.Get(kAnyPath, plain);  // HEAD arrives here too
    server.Put(kAnyPath, streamed);
    server.Post(kAnyPath, streamed);
    server.Delete(kAnyPath, streamed);
    server.Patch(kAnyPath, streamed);
}

}  // namespace quorvane::emulator
