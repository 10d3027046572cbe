#include "foundation/HttpSessionManager.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <vector>

namespace quorvane {
namespace {

using Pair = std::pair<std::string, std::optional<std::string>>;

std::string description(const Value& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
    return foundation::toJsonText(value);
}

// Flattens a parameter value into field/value pairs, the nested form servers expect.
void collectPairs(const std::string& key, const Value& value, std::vector<Pair>& out) {
    if (value.is_object()) {
        std::vector<std::string> keys;
        for (const auto& item : value.items()) keys.push_back(item.key());
        std::sort(keys.begin(), keys.end());
        for (const auto& sub : keys) collectPairs(key.empty() ? sub : key + "[" + sub + "]", value[sub], out);
    } else if (value.is_array()) {
        for (const auto& element : value) collectPairs(key + "[]", element, out);
    } else if (value.is_null()) {
        out.emplace_back(key, std::nullopt);
    } else {
        out.emplace_back(key, description(value));
    }
}

std::vector<Pair> pairsOf(const Value& parameters) {
    std::vector<Pair> pairs;
    if (parameters.is_object()) collectPairs("", parameters, pairs);
    return pairs;
}

bool sameField(const std::string& a, const std::string& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return std::tolower((unsigned char)x) == std::tolower((unsigned char)y); });
}

Error statusError(long status, const std::string& url) {
    return Error(kResponseSerializationErrorDomain, kErrorBadServerResponse,
                 "Request failed: status code " + std::to_string(status),
                 Value{{"statusCode", status}, {"url", url}});
}

}  // namespace

HttpSessionManager::HttpSessionManager(std::shared_ptr<foundation::HttpClient> client)
    : client_(client ? std::move(client) : foundation::HttpClient::shared()),
      completionQueue_(&foundation::dispatch::main()),
      timeoutInterval_(defaultTimeoutInterval()) {}

void HttpSessionManager::setHeader(foundation::Headers& headers, const std::string& value, const std::string& field) {
    for (auto& header : headers)
        if (sameField(header.first, field)) {
            header.second = value;
            return;
        }
    headers.emplace_back(field, value);
}

void HttpSessionManager::setValue(const std::string& value, const std::string& field) {
    setHeader(headers_, value, field);
}

Value HttpSessionManager::JSONObjectFromBody(const std::optional<std::string>& body) {
    if (!body) return nullptr;
    return foundation::parseJson(*body).value_or(Value(nullptr));
}

std::optional<std::string> HttpSessionManager::valueForHTTPHeaderField(const std::string& field) const {
    for (const auto& header : headers_)
        if (sameField(header.first, field)) return header.second;
    return std::nullopt;
}

std::string HttpSessionManager::queryString(const Value& parameters) {
    std::string query;
    for (const auto& [field, value] : pairsOf(parameters)) {
        if (!query.empty()) query += '&';
        query += foundation::urlEncode(field);
        if (value) query += "=" + foundation::urlEncode(*value);
    }
    return query;
}

foundation::HttpRequest HttpSessionManager::requestWithMethod(const std::string& method, const std::string& url,
                                                              const Value& parameters) const {
    foundation::HttpRequest request;
    request.method = method;
    request.url = url;
    request.idleTimeoutSeconds = timeoutInterval_;
    request.headers = headers_;
    std::string query = queryString(parameters);
    if (method == "GET" || method == "HEAD" || method == "DELETE") {
        if (!query.empty()) request.url += (url.find('?') == std::string::npos ? "?" : "&") + query;
    } else {
        if (!valueForHTTPHeaderField("Content-Type"))
            request.headers.emplace_back("Content-Type", "application/x-www-form-urlencoded");
        request.body = foundation::makeStringBody(query);
    }
    return request;
}

foundation::HttpRequest HttpSessionManager::multipartRequest(const std::string& url, const Value& parameters,
                                                             std::vector<foundation::FormPart> fileParts) const {
    foundation::HttpRequest request;
    request.method = "POST";
    request.url = url;
    request.idleTimeoutSeconds = timeoutInterval_;
    for (const auto& header : headers_)
        if (!sameField(header.first, "Content-Type")) request.headers.push_back(header);
    std::vector<foundation::FormPart> parts;
    for (auto& [field, value] : pairsOf(parameters)) {
        foundation::FormPart part;
        part.name = field;
        part.value = value.value_or("");
        parts.push_back(std::move(part));
    }
    for (auto& part : fileParts) parts.push_back(std::move(part));
    request.form = std::move(parts);
    return request;
}

void HttpSessionManager::dataTask(foundation::HttpRequest request, std::function<void(SessionResult)> completion,
                                  std::function<void(const Progress&)> uploadProgress) {
    if (uploadProgress)
        request.onUploadProgress = [uploadProgress](std::uint64_t sent, std::uint64_t total) {
            uploadProgress(Progress{static_cast<std::int64_t>(sent), static_cast<std::int64_t>(total)});
        };
    std::string url = request.url;
    foundation::Queue* queue = completionQueue_;
    client_->send(std::move(request), [queue, url, completion = std::move(completion)](foundation::HttpResult result) {
        SessionResult outcome;
        outcome.statusCode = result.response.status;
        if (!result.ok()) {
            outcome.error = result.error;
        } else {
            outcome.body = std::move(result.response.body);
            if (outcome.statusCode < 200 || outcome.statusCode > 299) outcome.error = statusError(outcome.statusCode, url);
        }
        queue->async([completion, outcome = std::move(outcome)] {
            if (completion) completion(outcome);
        });
    });
}

namespace {
std::atomic<long>& defaultTimeout() {
    static std::atomic<long> seconds{HttpSessionManager::kDefaultTimeoutInterval};
    return seconds;
}
}  // namespace

void HttpSessionManager::setDefaultTimeoutInterval(long seconds) {
    defaultTimeout() = seconds > 0 ? seconds : kDefaultTimeoutInterval;
}

long HttpSessionManager::defaultTimeoutInterval() { return defaultTimeout(); }

}  // namespace quorvane
