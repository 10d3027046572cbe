#pragma once
// Cancellation shared by a request and the work running for it: cancel() ends every registered
// HTTP task and ends any wait for a retry, so the operation ends promptly with the cancelled code (5).
#include <functional>
#include <map>
#include <mutex>

namespace quorvane::oss {

class OSSCancellationToken {
public:
    void cancel();
    bool isCancelled() const;
    // Registers an action run at cancel() (at once if already cancelled); returns an id for remove().
    int add(std::function<void()> onCancel);
    void remove(int id);
private:
    mutable std::mutex mutex_;
    bool cancelled_ = false;
    int nextId_ = 1;
    std::map<int, std::function<void()>> actions_;
};

}  // namespace quorvane::oss
