#pragma once
// Collects the calls of completion handlers and waits for them.
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>

#include "VODUpload/src/VODOpenApi.h"

namespace vodapi_test {

// The first call of a handler taking Args, and how many calls there were.
template <typename... Args>
struct HandlerCalls : std::enable_shared_from_this<HandlerCalls<Args...>> {
    std::function<void(Args...)> handler() {
        auto self = this->shared_from_this();
        return [self](Args... args) {
            std::lock_guard<std::mutex> lock(self->mutex);
            if (!self->got) self->got.emplace(std::move(args)...);
            ++self->count;
            self->cv.notify_all();
        };
    }
    bool wait() {  // generous: the machine may be loaded
        std::unique_lock<std::mutex> lock(mutex);
        return cv.wait_for(lock, std::chrono::seconds(60), [this] { return got.has_value(); });
    }
    int calls() {
        std::lock_guard<std::mutex> lock(mutex);
        return count;
    }
    std::mutex mutex;
    std::condition_variable cv;
    std::optional<std::tuple<Args...>> got;
    int count = 0;
};

// The (response, reply, error) of a VODOpenApi completion handler.
struct ReplyRecorder : HandlerCalls<std::optional<quorvane::foundation::HttpResponse>, std::optional<quorvane::Value>,
                                    std::optional<quorvane::Error>> {
    bool waitForCall() { return wait(); }
    const auto& response() const { return std::get<0>(got.value()); }
    const auto& reply() const { return std::get<1>(got.value()); }
    const auto& error() const { return std::get<2>(got.value()); }
    // "domain code" of the error the handler was given, or its domain alone; "none" without one.
    std::string errorText() const { return error() ? error()->domain + " " + std::to_string(error()->code) : "none"; }
    std::string errorDomain() const { return error() ? error()->domain : "none"; }
};

inline std::shared_ptr<ReplyRecorder> makeRecorder() { return std::make_shared<ReplyRecorder>(); }

}  // namespace vodapi_test
