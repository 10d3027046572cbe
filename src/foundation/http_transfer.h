#pragma once
// One request in flight: its curl easy handle, the buffers curl writes into, and the hand-off of
// progress and the completion to the worker pool. Internal to the HTTP client.
#include <asio/strand.hpp>
#include <asio/thread_pool.hpp>

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <optional>

#include "foundation/curl_handles.h"
#include "foundation/http_client.h"

namespace quorvane::foundation::detail {

class Transfer;

// What a curl read callback reads from, and the transfer to flag when the read fails.
struct BodyReader {
    Transfer* transfer;
    BodySource* source;
};

using Strand = asio::strand<asio::thread_pool::executor_type>;

class Transfer : public std::enable_shared_from_this<Transfer> {
public:
    Transfer(HttpRequest request, HttpCompletion completion, Strand strand, const void* owner,
             std::shared_ptr<SendRate> sendRate);

    // Builds the easy handle. Returns the error that stops the request before it is sent.
    std::optional<Error> prepare();
    CURL* easy() const { return easy_.get(); }

    // Turns curl's verdict into the outcome and posts the completion (curl thread, once).
    void finish(CURLcode code);
    void finishWith(Error error);

    // The caller asked to stop; the curl thread removes the handle. The flag is shared with the
    // task, which holds the transfer only weakly (a finished transfer must not outlive its client).
    const std::shared_ptr<std::atomic<bool>> cancelled = std::make_shared<std::atomic<bool>>(false);

    // curl callbacks.
    void appendHeaderLine(std::string_view line);
    void appendBody(const char* data, std::size_t size) { response_.body.append(data, size); }
    void noteUploadProgress(std::uint64_t sent, std::uint64_t curlTotal);
    // Called at least once a second with the bytes moved so far; true when the idle time-out struck.
    bool idleTimedOut(std::uint64_t movedBytes);
    bool bodyFailed = false;
    // Under a process-wide send-rate limit: this body's share of it, set again when the number of
    // bodies being sent has changed (curl thread).
    void applySendRateShare();
    char errorBuffer[CURL_ERROR_SIZE] = {};

private:
    std::optional<Error> setRequestHeaders();
    std::optional<Error> setMethodAndBody();
    std::optional<Error> setForm();
    BodyReader* reader(BodySource* source);
    void deliverProgress();
    std::uint64_t wireBytes();
    void complete(std::optional<Error> error);
    void post(std::function<void()> work);

    HttpRequest request_;
    HttpCompletion completion_;
    Strand strand_;
    const void* owner_;
    HttpResponse response_;
    std::deque<BodyReader> readers_;
    std::atomic<std::uint64_t> progressSent_{0};
    std::atomic<std::uint64_t> progressTotal_{0};
    std::atomic<bool> progressPending_{false};
    std::uint64_t progressPosted_ = 0;     // curl thread
    std::uint64_t progressDelivered_ = 0;  // strand
    std::shared_ptr<SendRate> sendRate_;
    struct SenderSlot {  // counts this body among those its client is sending while it lives
        explicit SenderSlot(SendRate& rate);
        ~SenderSlot();
        SenderSlot(const SenderSlot&) = delete;
        SenderSlot& operator=(const SenderSlot&) = delete;
        SendRate& rate;
    };
    std::optional<SenderSlot> sender_;
    long long sendShare_ = 0;  // the limit handed to curl; curl thread
    std::uint64_t movedBytes_ = 0;         // curl thread, for the idle time-out: curl's counters
    std::uint64_t wireBytes_ = 0;          // and the connection's, as the kernel counts them
    std::chrono::steady_clock::time_point lastMoved_ = std::chrono::steady_clock::now();
    bool idleExpired_ = false;
    long socketPort_ = 0;  // the local port of the connection last seen, and its socket
    int socket_ = -1;
    curl::Slist headers_;
    curl::Mime mime_;
    curl::Easy easy_;  // last: cleaned up before the lists and mime it points at
};

// The client whose worker is running on this thread (null elsewhere).
const void* currentWorkerOwner();

}  // namespace quorvane::foundation::detail
