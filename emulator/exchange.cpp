#include <chrono>
#include <thread>

#include "emulator/emulator_impl.h"

namespace quorvane::emulator {
namespace {
constexpr std::uint64_t kDrainLimit = 1 << 20;
}  // namespace

Exchange::Exchange(CloudEmulator::Impl& impl_, const httplib::Request& req_, httplib::Response& res_,
                   const httplib::ContentReader* reader)
    : impl(impl_), req(req_), res(res_), reader_(reader) {
    record.method = req.method;
    record.path = req.path;
    auto q = req.target.find('?');
    record.query = q == std::string::npos ? "" : req.target.substr(q + 1);
    record.headers = headers();
    res.set_header("x-oss-request-id", requestId);
}

Exchange::~Exchange() {
    if (recorded_) return;
    if (!bodyConsumed_) {
        // A small unread body is read past so the connection can serve the next request; a large one
        // (or one of unknown size) would hold the answer back until it had all arrived.
        auto length = contentLength();
        bool chunked = toLower(header("Transfer-Encoding").value_or("")).find("chunked") != std::string::npos;
        if (reader_ && (chunked || (length && *length > kDrainLimit))) refuseBody();
        else readBody([](const char*, std::size_t) { return true; });
    }
    saveRecord();
}

void Exchange::refuseBody() {
    if (bodyConsumed_) return;
    bodyConsumed_ = true;
    closeCurrentConnectionAfterAnswer();
}

void Exchange::saveRecord() {
    recorded_ = true;
    record.status = dropped_ ? 0 : res.status;
    if (record.operation == "UploadPart") impl.uploadPartBytes += record.bodySize;
    LoggedRequest line;
    line.time = foundation::iso8601UtcMillis(std::chrono::system_clock::now());
    line.method = req.method;
    line.target = redactedTarget(req.target);
    line.operation = record.operation;
    line.status = record.status;
    line.in = record.bodySize;
    line.out = req.method == "HEAD" ? 0 : !res.body.empty() ? res.body.size() : res.content_length_;
    line.ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started).count();
    impl.requestLog.add(std::move(line), impl.options.requestLog);
    std::lock_guard lock(impl.mutex);
    impl.requests.push_back(record);
}

Pairs Exchange::headers() const { return Pairs(req.headers.begin(), req.headers.end()); }

std::optional<std::string> Exchange::header(const std::string& name) const {
    if (!req.has_header(name)) return std::nullopt;
    return req.get_header_value(name);
}

Pairs Exchange::query() const { return parseQuery(record.query, false); }

std::optional<std::string> Exchange::param(const std::string& name) const {
    for (auto& [k, v] : query())
        if (k == name) return v;
    return std::nullopt;
}

bool Exchange::hasParam(const std::string& name) const { return param(name).has_value(); }

std::optional<std::uint64_t> Exchange::contentLength() const {
    auto text = header("Content-Length");
    if (!text) return std::nullopt;
    try {
        return std::stoull(*text);
    } catch (...) {
        return std::nullopt;
    }
}

bool Exchange::readBody(const BodySink& sink) {
    if (bodyConsumed_ || dropped_) return false;
    bodyConsumed_ = true;
    if (!reader_) {
        record.bodySize += req.body.size();
        return req.body.empty() || sink(req.body.data(), req.body.size());
    }
    // A refusing sink does not stop the reading: the rest is drained so the connection stays usable.
    bool accepted = true;
    bool whole = (*reader_)([&](const char* data, std::size_t size) {
        record.bodySize += size;
        if (accepted) accepted = sink(data, size);
        return true;
    });
    return whole && accepted;
}

bool Exchange::readMultipart(const httplib::MultipartContentHeader& onPart, const httplib::ContentReceiver& onData) {
    if (bodyConsumed_ || dropped_ || !reader_) return false;
    bodyConsumed_ = true;
    return (*reader_)(onPart, [&](const char* data, std::size_t size) {
        record.bodySize += size;
        return onData(data, size);
    });
}

std::optional<std::string> Exchange::readBodyText(std::size_t limit) {
    std::string text;
    bool ok = readBody([&](const char* data, std::size_t size) {
        if (text.size() + size > limit) return false;
        text.append(data, size);
        return true;
    });
    if (!ok) return std::nullopt;
    return text;
}

bool Exchange::applyFault(const std::string& operation, const std::function<void(const Fault&)>& answerError) {
    auto fault = impl.faults.take(operation, req.path);
    if (!fault) return false;
    switch (fault->kind) {
        case Fault::Kind::Delay:
            std::this_thread::sleep_for(std::chrono::milliseconds(fault->delayMs));
            return false;
        case Fault::Kind::CorruptCrc:
            corruptCrc = true;
            return false;
        case Fault::Kind::Error:
            readBody([](const char*, std::size_t) { return true; });
            answerError(*fault);
            return true;
        case Fault::Kind::Reset:
            drop(fault->afterBytes);
            return true;
    }
    return false;
}

void Exchange::drop(std::uint64_t afterBytes) {
    if (afterBytes > 0 && reader_ && !bodyConsumed_) {
        bodyConsumed_ = true;
        (*reader_)([&](const char*, std::size_t size) {
            record.bodySize += size;
            return record.bodySize < afterBytes;
        });
    }
    bodyConsumed_ = true;
    dropped_ = true;
    saveRecord();  // before the client can notice the drop
    dropCurrentConnection();
    res.status = 500;  // never reaches the client: the socket is shut already
}

}  // namespace quorvane::emulator
