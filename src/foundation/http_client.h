#pragma once
// The HTTP client every layer above uses: libcurl's multi interface behind it (keep-alive
// connection reuse, TLS verification on by default). Completions run on the client's worker
// threads, never on the caller's, so a completion may block briefly without stalling transfers.
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/error.h"

namespace quorvane::foundation {

// Transport errors carry this domain; `code` is the CURLcode and `description` names the call.
inline constexpr const char* kHttpErrorDomain = "HttpClient";
// Codes in kHttpErrorDomain that are not CURLcodes.
inline constexpr long long kHttpErrorCancelled = -999;   // the task was cancelled
inline constexpr long long kHttpErrorBadRequest = -1000; // the request could not be built (bad URL, missing file)

using Headers = std::vector<std::pair<std::string, std::string>>;

// A request body read in pieces, so large bodies stream from disk.
class BodySource {
public:
    virtual ~BodySource() = default;
    // Total length in bytes (sent as Content-Length).
    virtual std::uint64_t size() const = 0;
    // Copies up to `max` bytes into `buffer`; returns the count, 0 at the end, or -1 on a read error.
    virtual long long read(char* buffer, std::size_t max) = 0;
    // Starts again from the first byte (a retry or a redirect). Returns false when it cannot.
    virtual bool rewind() = 0;
};

// Body from memory.
std::shared_ptr<BodySource> makeStringBody(std::string bytes);
// Body from `length` bytes of a file starting at `offset`, read as it is sent. nullptr with
// `error` set when the file cannot be opened or is shorter than offset + length.
std::shared_ptr<BodySource> makeFileBody(const std::string& path, std::uint64_t offset, std::uint64_t length,
                                         Error* error = nullptr);

// One part of a multipart/form-data body.
struct FormPart {
    std::string name;
    std::string value;                      // a plain field's value, or the file's bytes
    std::optional<std::string> fileName;    // set for a file part
    std::optional<std::string> contentType; // set for a file part
    // When set, the part's bytes stream from here (a large file) and `value` is ignored.
    std::shared_ptr<BodySource> source;
};

struct HttpRequest {
    std::string method = "GET";
    std::string url;
    Headers headers;                           // sent in this order; a header given twice is sent twice
    std::shared_ptr<BodySource> body;          // raw body (POST/PUT); may be null
    std::optional<std::vector<FormPart>> form; // multipart/form-data body instead of `body`
    // Idle time-out: the request fails with CURLE_OPERATION_TIMEDOUT once no byte has moved either way
    // for this many seconds, so a silent service is always noticed while a slow link that still
    // moves bytes is never cut. 0 = none. Every request has one unless its caller opts out.
    long idleTimeoutSeconds = 60;
    long timeoutSeconds = 0;                   // cap on the whole request; 0 = none (prefer the idle time-out)
    long connectTimeoutSeconds = 30;
    bool verifyTls = true;
    std::string caFile;                        // extra CA bundle (a test CA); empty = system store
    // Upload progress: bytes sent so far and the total. Called on a worker thread.
    std::function<void(std::uint64_t sent, std::uint64_t total)> onUploadProgress;
};

struct HttpResponse {
    long status = 0;
    Headers headers;   // names as received
    std::string body;  // raw bytes, also for HTTP error statuses
    // Case-insensitive look-up of the first header with that name.
    std::optional<std::string> header(std::string_view name) const;
};

// The outcome: a transport error (no HTTP answer, cancelled, bad request) or an HTTP answer of
// any status. HTTP error statuses are not transport errors; the caller decides.
struct HttpResult {
    std::optional<Error> error;
    HttpResponse response;
    bool ok() const { return !error.has_value(); }
};

using HttpCompletion = std::function<void(HttpResult)>;

// A running request. cancel() ends it with kHttpErrorCancelled (exactly one completion either way).
class HttpTask {
public:
    virtual ~HttpTask() = default;
    virtual void cancel() = 0;
    virtual bool isCancelled() const = 0;
};

struct HttpClientOptions {
    int workerThreads = 4;          // threads that run completions
    long maxConnectionsPerHost = 8; // kept-alive connections are reused across requests
    // Cap on the upload rate of all this client's request bodies together, in bytes per second; 0 = none.
    std::uint64_t sendRateLimit = 0;
};

namespace detail {
// A client's send-rate cap and the bodies it is sending now, which share it evenly (each one's libcurl
// send-speed limit); a body that started under another share takes the new one at its next progress tick.
struct SendRate {
    std::atomic<std::uint64_t> limit{0};
    std::atomic<long long> bodies{0};
};
}  // namespace detail

class HttpClient {
public:
    explicit HttpClient(HttpClientOptions options = {});
    ~HttpClient();  // cancels what is running and waits for completions to finish
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    // The process-wide client, and the options it is made with.
    static std::shared_ptr<HttpClient> shared();
    static HttpClientOptions sharedOptions();

    // Changes the cap on the upload rate (HttpClientOptions::sendRateLimit); bodies started without a
    // cap keep going without one.
    void setSendRateLimit(std::uint64_t bytesPerSecond);
    std::uint64_t sendRateLimit() const;

    // Starts the request; `completion` runs exactly once on a worker thread.
    std::shared_ptr<HttpTask> send(HttpRequest request, HttpCompletion completion);
    // Blocking form, for callers that already run on a worker thread. Must not be called from a
    // completion of this same client if every worker might be busy.
    HttpResult sendSync(HttpRequest request);

    // Waits until every request started on this client has ended and its completion has returned (a
    // request started meanwhile counts too); false when `timeout` passed first. A host calls it before
    // it ends, so nothing of its own, such as a telemetry send, is still running while the process exits.
    bool waitUntilIdle(std::chrono::milliseconds timeout) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};


// Percent-encodes for a URL query (RFC 3986 unreserved kept).
std::string urlEncode(std::string_view text);
std::optional<std::string> urlDecode(std::string_view text);

}  // namespace quorvane::foundation
