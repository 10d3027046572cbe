// Request routing: every method and path reaches one dispatcher that picks the service.
#include "emulator/router.h"

#include "foundation/log.h"

namespace quorvane::emulator {
namespace {

const char* const kAnyPath = "[\\s\\S]*";

void route(CloudEmulator::Impl& impl, const httplib::Request& req, httplib::Response& res,
           const httplib::ContentReader* reader) {
    try {
        Exchange ex(impl, req, res, reader);
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
