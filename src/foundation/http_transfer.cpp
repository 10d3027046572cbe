#include "foundation/http_transfer.h"

#include <asio/post.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>

#include "foundation/log.h"
#include "foundation/socket_stats.h"

namespace quorvane::foundation::detail {
namespace {

thread_local const void* tlsWorkerOwner = nullptr;


// Bigger send buffers cut read-callback round trips on large parts.
constexpr long kUploadBufferSize = 512 * 1024;

bool equalsIgnoreCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return std::tolower((unsigned char)x) == std::tolower((unsigned char)y); });
}

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r' || s.back() == '\n'))
        s.remove_suffix(1);
    return s;
}

size_t onWrite(char* data, size_t size, size_t count, void* user) {
    static_cast<Transfer*>(user)->appendBody(data, size * count);
    return size * count;
}

size_t onHeader(char* data, size_t size, size_t count, void* user) {
    static_cast<Transfer*>(user)->appendHeaderLine(std::string_view(data, size * count));
    return size * count;
}

size_t onRead(char* buffer, size_t size, size_t count, void* user) {
    auto* r = static_cast<BodyReader*>(user);
    long long n = r->source->read(buffer, size * count);
    if (n < 0) {
        r->transfer->bodyFailed = true;
        return CURL_READFUNC_ABORT;
    }
    return static_cast<size_t>(n);
}

int onSeek(void* user, curl_off_t offset, int origin) {
    auto* r = static_cast<BodyReader*>(user);
    if (origin == SEEK_SET && offset == 0 && r->source->rewind()) return CURL_SEEKFUNC_OK;
    return CURL_SEEKFUNC_CANTSEEK;
}

int onSocketOpened(void*, curl_socket_t fd, curlsocktype) {
    noteSocketOpened(static_cast<int>(fd));
    return CURL_SOCKOPT_OK;
}

int onSocketClose(void*, curl_socket_t fd) {
    noteSocketClosed(static_cast<int>(fd));
    return ::close(fd);
}

int onProgress(void* user, curl_off_t, curl_off_t dlNow, curl_off_t ulTotal, curl_off_t ulNow) {
    auto* t = static_cast<Transfer*>(user);
    t->noteUploadProgress(static_cast<std::uint64_t>(ulNow), static_cast<std::uint64_t>(ulTotal));
    if (*t->cancelled) return 1;
    t->applySendRateShare();
    return t->idleTimedOut(static_cast<std::uint64_t>(dlNow) + static_cast<std::uint64_t>(ulNow)) ? 1 : 0;
}

// Collects the first failing curl_easy_setopt, naming the option.
struct Options {
    CURL* handle;
    std::optional<Error> error;
    template <class T>
    void set(CURLoption option, const char* name, T value) {
        if (error) return;
        CURLcode c = curl_easy_setopt(handle, option, value);
        if (c != CURLE_OK) error = curl::makeError((std::string("curl_easy_setopt(") + name + ")").c_str(), c);
    }
};
#define QV_SET(opts, option, value) (opts).set(option, #option, value)

Error badRequest(const std::string& text) { return Error(kHttpErrorDomain, kHttpErrorBadRequest, text); }

std::optional<Error> checkUrl(const std::string& url) {
    curl::Url u(curl_url());
    if (!u) return curl::makeError("curl_url", CURLE_OUT_OF_MEMORY);
    if (curl_url_set(u.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) return badRequest("bad URL");
    char* scheme = nullptr;
    if (curl_url_get(u.get(), CURLUPART_SCHEME, &scheme, 0) != CURLUE_OK) return badRequest("bad URL");
    std::string s(scheme);
    curl_free(scheme);
    if (s != "http" && s != "https") return badRequest("unsupported URL scheme: " + s);
    return std::nullopt;
}

bool hasHeader(const Headers& headers, std::string_view name) {
    return std::any_of(headers.begin(), headers.end(), [&](const auto& h) { return equalsIgnoreCase(h.first, name); });
}

}  // namespace

const void* currentWorkerOwner() { return tlsWorkerOwner; }

Transfer::SenderSlot::SenderSlot(SendRate& rate) : rate(rate) { ++rate.bodies; }
Transfer::SenderSlot::~SenderSlot() { --rate.bodies; }

void Transfer::applySendRateShare() {
    if (!sender_ || !easy_) return;
    auto limit = static_cast<long long>(sender_->rate.limit.load());
    long long share = limit > 0 ? std::max(1LL, limit / std::max(1LL, sender_->rate.bodies.load())) : 0;
    if (share == sendShare_) return;
    sendShare_ = share;
    curl_easy_setopt(easy_.get(), CURLOPT_MAX_SEND_SPEED_LARGE, static_cast<curl_off_t>(share));
}

Transfer::Transfer(HttpRequest request, HttpCompletion completion, Strand strand, const void* owner,
                   std::shared_ptr<SendRate> sendRate)
    : request_(std::move(request)),
      completion_(std::move(completion)),
      strand_(std::move(strand)),
      owner_(owner),
      sendRate_(std::move(sendRate)) {}

std::optional<Error> Transfer::prepare() {
    lastMoved_ = std::chrono::steady_clock::now();
    if (auto e = checkUrl(request_.url)) return e;
    easy_.reset(curl_easy_init());
    if (!easy_) return curl::makeError("curl_easy_init", CURLE_FAILED_INIT);
    Options o{easy_.get(), std::nullopt};
    QV_SET(o, CURLOPT_URL, request_.url.c_str());
    // The path goes out as the caller encoded it: "." and ".." segments are parts of object keys,
    // and a path rewritten here would no longer match its signature.
    QV_SET(o, CURLOPT_PATH_AS_IS, 1L);
    QV_SET(o, CURLOPT_PRIVATE, static_cast<void*>(this));
    QV_SET(o, CURLOPT_NOSIGNAL, 1L);
    QV_SET(o, CURLOPT_ERRORBUFFER, errorBuffer);
    QV_SET(o, CURLOPT_PROTOCOLS_STR, "http,https");
    QV_SET(o, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    QV_SET(o, CURLOPT_FOLLOWLOCATION, 1L);
    QV_SET(o, CURLOPT_MAXREDIRS, 10L);
    QV_SET(o, CURLOPT_TCP_KEEPALIVE, 1L);
    QV_SET(o, CURLOPT_SOCKOPTFUNCTION, onSocketOpened);
    QV_SET(o, CURLOPT_CLOSESOCKETFUNCTION, onSocketClose);
    QV_SET(o, CURLOPT_CONNECTTIMEOUT, request_.connectTimeoutSeconds);
    QV_SET(o, CURLOPT_TIMEOUT, request_.timeoutSeconds);
    QV_SET(o, CURLOPT_SSL_VERIFYPEER, request_.verifyTls ? 1L : 0L);
    QV_SET(o, CURLOPT_SSL_VERIFYHOST, request_.verifyTls ? 2L : 0L);
    if (!request_.caFile.empty()) {
        QV_SET(o, CURLOPT_CAINFO, request_.caFile.c_str());
        struct stat st {};
        if (::stat("/etc/ssl/certs", &st) == 0) QV_SET(o, CURLOPT_CAPATH, "/etc/ssl/certs");  // keep the system store too
    }
    QV_SET(o, CURLOPT_UPLOAD_BUFFERSIZE, kUploadBufferSize);
    QV_SET(o, CURLOPT_WRITEFUNCTION, onWrite);
    QV_SET(o, CURLOPT_WRITEDATA, static_cast<void*>(this));
    QV_SET(o, CURLOPT_HEADERFUNCTION, onHeader);
    QV_SET(o, CURLOPT_HEADERDATA, static_cast<void*>(this));
    // The progress callback also keeps the idle time-out: libcurl's own low-speed limit averages over a
    // five-second window, so a short idle time-out would strike anywhere up to five seconds late.
    if (request_.onUploadProgress || request_.idleTimeoutSeconds > 0) {
        QV_SET(o, CURLOPT_NOPROGRESS, 0L);
        QV_SET(o, CURLOPT_XFERINFOFUNCTION, onProgress);
        QV_SET(o, CURLOPT_XFERINFODATA, static_cast<void*>(this));
    }
    if (o.error) return o.error;
    if (auto e = setMethodAndBody()) return e;
    if ((request_.body || request_.form) && sendRate_ && sendRate_->limit.load() > 0) {
        sender_.emplace(*sendRate_);
        QV_SET(o, CURLOPT_NOPROGRESS, 0L);
        QV_SET(o, CURLOPT_XFERINFOFUNCTION, onProgress);
        QV_SET(o, CURLOPT_XFERINFODATA, static_cast<void*>(this));
        if (o.error) return o.error;
        applySendRateShare();
    }
    return setRequestHeaders();
}

BodyReader* Transfer::reader(BodySource* source) {
    readers_.push_back(BodyReader{this, source});
    return &readers_.back();
}

std::optional<Error> Transfer::setMethodAndBody() {
    if (request_.form) return setForm();
    const std::string& m = request_.method;
    bool sendsBody = request_.body || m == "POST" || m == "PUT" || m == "PATCH";
    Options o{easy_.get(), std::nullopt};
    if (!sendsBody) {
        if (m == "HEAD") QV_SET(o, CURLOPT_NOBODY, 1L);
        else if (m == "GET") QV_SET(o, CURLOPT_HTTPGET, 1L);
        else QV_SET(o, CURLOPT_CUSTOMREQUEST, m.c_str());
        return o.error;
    }
    if (!request_.body) request_.body = makeStringBody({});
    request_.body->rewind();  // a source reused for a retry starts again from its first byte
    auto size = static_cast<curl_off_t>(request_.body->size());
    BodyReader* r = reader(request_.body.get());
    if (m == "PUT") {
        QV_SET(o, CURLOPT_UPLOAD, 1L);
        QV_SET(o, CURLOPT_INFILESIZE_LARGE, size);
    } else {
        QV_SET(o, CURLOPT_POST, 1L);
        QV_SET(o, CURLOPT_POSTFIELDSIZE_LARGE, size);
        if (m != "POST") QV_SET(o, CURLOPT_CUSTOMREQUEST, m.c_str());
    }
    QV_SET(o, CURLOPT_READFUNCTION, onRead);
    QV_SET(o, CURLOPT_READDATA, static_cast<void*>(r));
    QV_SET(o, CURLOPT_SEEKFUNCTION, onSeek);
    QV_SET(o, CURLOPT_SEEKDATA, static_cast<void*>(r));
    return o.error;
}

std::optional<Error> Transfer::setForm() {
    mime_.reset(curl_mime_init(easy_.get()));
    if (!mime_) return curl::makeError("curl_mime_init", CURLE_OUT_OF_MEMORY);
    for (const FormPart& p : *request_.form) {
        curl_mimepart* part = curl_mime_addpart(mime_.get());
        if (!part) return curl::makeError("curl_mime_addpart", CURLE_OUT_OF_MEMORY);
        CURLcode c = curl_mime_name(part, p.name.c_str());
        if (c == CURLE_OK && p.source) {
            p.source->rewind();
            c = curl_mime_data_cb(part, static_cast<curl_off_t>(p.source->size()), onRead, onSeek, nullptr,
                                  reader(p.source.get()));
        } else if (c == CURLE_OK) {
            c = curl_mime_data(part, p.value.data(), p.value.size());
        }
        if (c == CURLE_OK && p.fileName) c = curl_mime_filename(part, p.fileName->c_str());
        if (c == CURLE_OK && p.contentType) c = curl_mime_type(part, p.contentType->c_str());
        if (c != CURLE_OK) return curl::makeError("curl_mime_addpart", c);
    }
    Options o{easy_.get(), std::nullopt};
    QV_SET(o, CURLOPT_MIMEPOST, mime_.get());
    if (request_.method != "POST") QV_SET(o, CURLOPT_CUSTOMREQUEST, request_.method.c_str());
    return o.error;
}

std::optional<Error> Transfer::setRequestHeaders() {
    bool ok = true;
    for (const auto& [name, value] : request_.headers)
        // "Name;" is curl's way to send a header with an empty value ("Name:" would remove it).
        ok = ok && curl::append(headers_, value.empty() ? name + ";" : name + ": " + value);
    // No 100-continue round trip before large bodies.
    if (!hasHeader(request_.headers, "Expect")) ok = ok && curl::append(headers_, "Expect:");
    // A raw POST carries no content type unless the caller gives one (curl would add a form type).
    bool rawPost = !request_.form && request_.method != "PUT" && request_.body;
    if (rawPost && !hasHeader(request_.headers, "Content-Type")) ok = ok && curl::append(headers_, "Content-Type:");
    if (!ok) return curl::makeError("curl_slist_append", CURLE_OUT_OF_MEMORY);
    Options o{easy_.get(), std::nullopt};
    QV_SET(o, CURLOPT_HTTPHEADER, headers_.get());
    return o.error;
}

void Transfer::appendHeaderLine(std::string_view line) {
    line = trim(line);
    if (line.substr(0, 5) == "HTTP/") {
        response_.headers.clear();  // a new response (after a redirect or an interim 1xx)
        return;
    }
    auto colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) return;
    response_.headers.emplace_back(std::string(trim(line.substr(0, colon))), std::string(trim(line.substr(colon + 1))));
}

void Transfer::post(std::function<void()> work) {
    asio::post(strand_, [owner = owner_, work = std::move(work)] {
        const void* previous = tlsWorkerOwner;
        tlsWorkerOwner = owner;
        try {
            work();
        } catch (const std::exception& e) {
            logLine(std::string("HttpClient: a callback threw: ") + e.what());
        } catch (...) {
            logLine("HttpClient: a callback threw");
        }
        tlsWorkerOwner = previous;
    });
}

// Bytes the peer has acknowledged plus bytes received on the connection. What curl has handed to the
// kernel says little on a slow link: the socket buffers take a whole part at once and then drain
// for many seconds, and that draining is progress too.
std::uint64_t Transfer::wireBytes() {
    long localPort = 0;
    if (curl_easy_getinfo(easy_.get(), CURLINFO_LOCAL_PORT, &localPort) != CURLE_OK || localPort <= 0) return 0;
    if (localPort != socketPort_) {
        socket_ = openSocketWithLocalPort(localPort);
        socketPort_ = localPort;
    }
    return tcpBytesMoved(socket_);
}

bool Transfer::idleTimedOut(std::uint64_t movedBytes) {
    if (request_.idleTimeoutSeconds <= 0) return false;
    const auto now = std::chrono::steady_clock::now();
    // The kernel is asked only while curl's own counters stand still: during a fast transfer this runs
    // for every chunk, and curl's counters already say bytes move.
    if (movedBytes != movedBytes_) {
        movedBytes_ = movedBytes;
        lastMoved_ = now;
        return false;
    }
    if (const std::uint64_t wire = wireBytes(); wire != wireBytes_) {
        wireBytes_ = wire;
        lastMoved_ = now;
        return false;
    }
    idleExpired_ = now - lastMoved_ >= std::chrono::seconds(request_.idleTimeoutSeconds);
    return idleExpired_;
}

void Transfer::noteUploadProgress(std::uint64_t sent, std::uint64_t curlTotal) {
    if (!request_.onUploadProgress) return;
    std::uint64_t total = request_.body && !request_.form ? request_.body->size() : curlTotal;
    if (total == 0 && sent == 0) return;
    progressTotal_ = total;
    progressSent_ = sent;
    if (sent == progressPosted_) return;
    progressPosted_ = sent;
    // One delivery in flight at a time; it reads the newest numbers when it runs.
    if (!progressPending_.exchange(true)) post([self = shared_from_this()] { self->deliverProgress(); });
}

void Transfer::deliverProgress() {
    progressPending_ = false;
    std::uint64_t sent = progressSent_;
    if (sent == progressDelivered_ || !request_.onUploadProgress) return;
    progressDelivered_ = sent;
    request_.onUploadProgress(sent, progressTotal_);
}

void Transfer::finish(CURLcode code) {
    if (*cancelled) return finishWith(Error(kHttpErrorDomain, kHttpErrorCancelled, "cancelled"));
    if (code != CURLE_OK && bodyFailed) return finishWith(badRequest("the request body could not be read"));
    if (code != CURLE_OK && idleExpired_) {
        Error e = curl::makeError("curl_multi_perform", CURLE_OPERATION_TIMEDOUT);
        e.userInfo["detail"] = "no data moved for " + std::to_string(request_.idleTimeoutSeconds) + " seconds";
        return finishWith(std::move(e));
    }
    if (code != CURLE_OK) {
        Error e = curl::makeError("curl_multi_perform", code);
        if (errorBuffer[0]) e.userInfo["detail"] = std::string(errorBuffer);
        return finishWith(std::move(e));
    }
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &response_.status);
    if (request_.onUploadProgress) {
        curl_off_t sent = 0;
        curl_easy_getinfo(easy_.get(), CURLINFO_SIZE_UPLOAD_T, &sent);
        noteUploadProgress(static_cast<std::uint64_t>(sent), static_cast<std::uint64_t>(sent));
    }
    complete(std::nullopt);
}

void Transfer::finishWith(Error error) { complete(std::move(error)); }

void Transfer::complete(std::optional<Error> error) {
    easy_.reset();
    sender_.reset();
    post([self = shared_from_this(), error = std::move(error)]() mutable {
        HttpResult r;
        r.error = std::move(error);
        r.response = std::move(self->response_);
        // Let go of the request and the completion first: a completion that holds its task
        // (and so this transfer) must not keep itself alive.
        HttpCompletion done = std::move(self->completion_);
        self->completion_ = nullptr;
        self->request_ = HttpRequest();
        if (done) done(std::move(r));
    });
}

}  // namespace quorvane::foundation::detail

namespace quorvane::foundation {


}  // namespace quorvane::foundation
