#include "emulator/console.h"

#include <arpa/inet.h>

#include "emulator/fault_file.h"

namespace quorvane::emulator {
namespace {

bool loopback(const std::string& address) {
    in_addr v4{};
    if (inet_pton(AF_INET, address.c_str(), &v4) == 1) return (ntohl(v4.s_addr) >> 24) == 127;
    in6_addr v6{};
    if (inet_pton(AF_INET6, address.c_str(), &v6) != 1) return false;
    if (IN6_IS_ADDR_LOOPBACK(&v6)) return true;
    return IN6_IS_ADDR_V4MAPPED(&v6) && v6.s6_addr[12] == 127;
}

Value objectsOf(const std::vector<ObjectInfo>& objects, const std::string& bucket) {
    Value out = Value::array();
    for (const auto& o : objects) {
        if (o.bucket != bucket) continue;
        // CRC-64 as text: JSON numbers in a browser lose bits past 2^53.
        out.push_back({{"key", o.key}, {"size", o.size}, {"crc64", std::to_string(o.crc64)},
                       {"lastModified", o.lastModified}, {"parts", o.partCount}});
    }
    return out;
}

const char* kindName(Fault::Kind kind) {
    switch (kind) {
        case Fault::Kind::Error: return "error";
        case Fault::Kind::Reset: return "reset";
        case Fault::Kind::Delay: return "delay";
        case Fault::Kind::CorruptCrc: return "corrupt-crc";
    }
    return "";
}

void serveFaults(CloudEmulator::Impl& impl, const httplib::Request& req, httplib::Response& res,
                 const httplib::ContentReader* reader) {
    if (req.method == "POST") {
        std::string body;
        bool whole = (*reader)([&](const char* data, std::size_t size) {
            body.append(data, size);
            return body.size() <= (1u << 20);
        });
        // JSON only: a page of another site cannot send it without a preflight, which is never answered.
        if (req.get_header_value("Content-Type").rfind("application/json", 0) != 0) {
            res.status = 415;
            return res.set_content("Send the fault script as application/json.\n", "text/plain");
        }
        std::string error;
        auto faults = whole ? parseFaultScript(body, error) : std::nullopt;
        if (!faults) {
            res.status = 400;
            return res.set_content((whole ? error : "The script is over 1 MiB.") + "\n", "text/plain");
        }
        for (auto& f : *faults) impl.faults.add(std::move(f));
    } else if (req.method == "DELETE") {
        impl.faults.clear();
    } else if (req.method != "GET") {
        res.status = 405;
        return;
    }
    Value out = {{"pending", impl.faults.pending()}, {"fired", Value::array()}};
    for (const auto& f : impl.faults.fired())
        out["fired"].push_back({{"operation", f.operation}, {"fault", kindName(f.fault.kind)}, {"path", f.path}});
    res.set_content(foundation::toJsonText(out), "application/json");
}

}  // namespace

std::string consoleState(CloudEmulator::Impl& impl) {
    Value state = Value::object();
    state["endpoint"] = impl.endpoint();
    state["buckets"] = Value::array();
    const auto objects = impl.storage.objects();
    for (const auto& bucket : impl.storage.buckets())
        state["buckets"].push_back({{"name", bucket}, {"objects", objectsOf(objects, bucket)}});
    state["uploads"] = Value::array();
    for (const auto& u : impl.storage.uploads()) {
        if (u.state != UploadState::Open) continue;
        std::uint64_t bytes = 0;
        for (const auto& p : u.parts) bytes += p.size;
        state["uploads"].push_back(
            {{"uploadId", u.uploadId}, {"bucket", u.bucket}, {"key", u.key}, {"parts", u.parts.size()}, {"bytes", bytes}});
    }
    state["videos"] = Value::array();
    state["images"] = Value::array();
    {
        std::lock_guard lock(impl.mutex);
        for (const auto& v : impl.videos)
            state["videos"].push_back({{"videoId", v.videoId}, {"title", v.title}, {"fileName", v.fileName},
                                       {"objectKey", v.objectKey}, {"refreshes", v.refreshCount}});
        for (const auto& i : impl.images)
            state["images"].push_back(
                {{"imageId", i.imageId}, {"imageType", i.imageType}, {"objectKey", i.objectKey}, {"url", i.imageURL}});
    }
    state["requests"] = Value::array();
    for (const auto& r : impl.requestLog.recent())
        state["requests"].push_back({{"time", r.time}, {"method", r.method}, {"target", r.target},
                                     {"operation", r.operation}, {"status", r.status}, {"in", r.in},
                                     {"out", r.out}, {"ms", r.ms}});
    return foundation::toJsonText(state);
}

void serveConsole(CloudEmulator::Impl& impl, const httplib::Request& req, httplib::Response& res,
                  const httplib::ContentReader* reader) {
    res.set_header("Cache-Control", "no-store");
    const bool allowed = impl.options.consoleForAnyone || loopback(req.remote_addr);
    if (reader && !(allowed && req.method == "POST" && req.path == "/_console/faults"))
        closeCurrentConnectionAfterAnswer();  // a body nobody reads must not be taken for the next request
    if (!allowed) {
        res.status = 403;
        res.set_content("The console answers this machine only.\n", "text/plain");
        return;
    }
    if (req.path == "/_console/faults") return serveFaults(impl, req, res, reader);
    if (req.method != "GET" && req.method != "HEAD") {
        res.status = 405;
        return;
    }
    if (req.path == "/_console" || req.path == "/_console/") {
        if (req.path == "/_console") return res.set_redirect("/_console/", 301);
        res.set_header("Content-Security-Policy", "default-src 'self'; style-src 'unsafe-inline'; script-src 'unsafe-inline'");
        return res.set_content(kConsolePage, "text/html; charset=utf-8");
    }
    if (req.path == "/_console/state.json") return res.set_content(consoleState(impl), "application/json");
    res.status = 404;
    res.set_content("No such console page.\n", "text/plain");
}

}  // namespace quorvane::emulator
