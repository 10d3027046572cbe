#pragma once
// Collects the (response, reply, error) calls of a VODOpenApi completion handler and waits for them.
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

#include "VODUpload/src/VODOpenApi.h"

namespace vodapi_test {

class ReplyRecorder : public std::enable_shared_from_this<ReplyRecorder> {
public:
    quorvane::VODOpenApiCompletionHandler handler() {
        auto self = shared_from_this();
        return [self](std::optional<quorvane::foundation::HttpResponse> response, std::optional<quorvane::Value> reply,
                      std::optional<quorvane::Error> error) {
            std::lock_guard<std::mutex> lock(self->mutex_);
            self->response = std::move(response);
            self->reply = std::move(reply);
            self->error = std::move(error);
            ++self->calls_;
            self->cv_.notify_all();
        };
    }
    // Generous: the machine may be loaded.
    bool waitForCall(std::chrono::seconds timeout = std::chrono::seconds(60)) {
        std::unique_lock<std::mutex> lock(mutex_);
        return cv_.wait_for(lock, timeout, [this] { return calls_ > 0; });
    }
    int calls() {
        std::lock_guard<std::mutex> lock(mutex_);
        return calls_;
    }

    std::optional<quorvane::foundation::HttpResponse> response;
    std::optional<quorvane::Value> reply;
    std::optional<quorvane::Error> error;

private:
    std::mutex mutex_;
    std::condition_variable cv_;
    int calls_ = 0;
};

inline std::shared_ptr<ReplyRecorder> makeRecorder() { return std::make_shared<ReplyRecorder>(); }

}  // namespace vodapi_test
