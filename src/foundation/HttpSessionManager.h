#pragma once
// The HTTP session object the request helpers make fresh for every call (`pubManager`): a request
// serializer (headers, parameter encoding) over the shared HTTP client, raw response bytes, and
// completions delivered on the main queue.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "foundation/dispatch.h"
#include "foundation/error.h"
#include "foundation/http_client.h"
#include "foundation/value.h"

namespace quorvane {

// An HTTP answer outside 200–299 fails with this domain and code; userInfo carries "statusCode".
inline constexpr const char* kResponseSerializationErrorDomain = "com.alamofire.error.serialization.response";
inline constexpr long long kErrorBadServerResponse = -1011;

// Upload progress of a request, in bytes.
struct Progress {
    std::int64_t completedUnitCount = 0;
    std::int64_t totalUnitCount = 0;
};

// The outcome of one request: the error (transport, or HTTP status), and the body received, if any.
struct SessionResult {
    std::optional<Error> error;
    std::optional<std::string> body;
    long statusCode = 0;
};

// The request helpers' outcome: parsed body (or null), "success"/"failure", and the error on failure.
using ReponseData = std::function<void(const Value& data, const std::string& status, const std::optional<Error>& error)>;
using ProgressCallback = std::function<void(const Progress& progress)>;

class HttpSessionManager {
public:
    // `client` null: the process-wide client.
    explicit HttpSessionManager(std::shared_ptr<foundation::HttpClient> client = nullptr);

    // Sets (or replaces) a header every request of this session carries.
    void setValue(const std::string& value, const std::string& forHTTPHeaderField);
    std::optional<std::string> valueForHTTPHeaderField(const std::string& field) const;
    const foundation::Headers& HTTPRequestHeaders() const { return headers_; }

    // Seconds without a byte moved before a request fails (the serializer's time-out; a request that
    // still moves bytes is never cut). New sessions take the process-wide default, 60 unless set.
    void setTimeoutInterval(long seconds) { timeoutInterval_ = seconds > 0 ? seconds : kDefaultTimeoutInterval; }
    long timeoutInterval() const { return timeoutInterval_; }
    static constexpr long kDefaultTimeoutInterval = 60;
    static void setDefaultTimeoutInterval(long seconds);
    static long defaultTimeoutInterval();
    // Where completions run; the main queue unless set. The queue must outlive the session's tasks.
    void setCompletionQueue(foundation::Queue* queue) { completionQueue_ = queue; }

    // A request through the serializer: for GET and HEAD the parameters go into the query string;
    // for other methods they become a form-encoded body ("application/x-www-form-urlencoded" unless
    // a content type is set).
    foundation::HttpRequest requestWithMethod(const std::string& method, const std::string& url,
                                              const Value& parameters) const;
    // A multipart request: the parameters as form fields, then `fileParts`. The
    // serializer's content type gives way to multipart/form-data with its boundary.
    foundation::HttpRequest multipartRequest(const std::string& url, const Value& parameters,
                                             std::vector<foundation::FormPart> fileParts) const;

    // Sends the request; `completion` runs exactly once on the completion queue. An HTTP status
    // outside 200–299 is reported as an error, with the body kept.
    void dataTask(foundation::HttpRequest request, std::function<void(SessionResult)> completion,
                  std::function<void(const Progress&)> uploadProgress = nullptr);

    // Sets or replaces `field` in `headers` (names compare without case).
    static void setHeader(foundation::Headers& headers, const std::string& value, const std::string& field);
    // The body read as JSON, bare fragments accepted; null when absent or not JSON.
    static Value JSONObjectFromBody(const std::optional<std::string>& body);
    // The query string of a parameter dictionary: sorted keys, nested "key[sub]" and "key[]".
    static std::string queryString(const Value& parameters);

private:
    std::shared_ptr<foundation::HttpClient> client_;
    foundation::Headers headers_;
    foundation::Queue* completionQueue_;
    long timeoutInterval_;
};

}  // namespace quorvane
