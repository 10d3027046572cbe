#pragma once
// Sends numbered engine events to the log service, one GET per event, fire-and-forget: the caller
// builds the URL on its own thread and only queues it (see AVCVEventTransport).
#include <atomic>
#include <memory>
#include <optional>
#include <mutex>
#include <string>

#include "VODUpload/src/AVCVEventConstants.h"
#include "foundation/value.h"

namespace quorvane {

class AVCVEventTransport;

class AVCVEventManager {
public:
    // The one process-wide manager (log store "svideo").
    static std::shared_ptr<AVCVEventManager> sharedManager();

    // `requestID` a fresh UUID, `enabled` true, `logstore` "svideo".
    AVCVEventManager();

    // A separate manager for `logstore`, enabled as this one is, sending through the same transport
    // to the same log service.
    std::shared_ptr<AVCVEventManager> newInstance(const std::string& logstore) const;
    void refreshRequestID();

    // `params` and `commonParams` are objects; null means absent. Does nothing while disabled.
    void sendEvent(long long eventNumber, const Value& params);
    void sendEvent(long long eventNumber, const Value& params, const Value& commonParams);

    // The pieces of an event.
    Value defaultParams() const;
    // The track URL of this manager's log store: scheme, host, "/logstores/<logstore>/track?APIVersion=0.6.0".
    std::string eventHostUrl() const;
    // The full URL sendEvent would request.
    std::string eventUrl(long long eventNumber, const Value& params, const Value& commonParams) const;
    // "key=value" of every entry in the map's own order, joined by "&", nothing escaped.
    static std::string urlEncodingWithDict(const Value& dict);
    // The default text of a value: strings as they are, numbers in decimal, booleans 1/0, null "".
    static std::string alivcToString(const Value& value);
    // The event escaping (everything but ASCII letters, digits and "-._~" as %XX); absent gives "".
    static std::string stringUrlEncode(const std::optional<std::string>& text);
    static std::string generateUUID();
    static std::string getlogVersion();
    // Milliseconds since 1970 (UTC), decimal.
    static std::string getTimeStamp();
    // "wifi" on Wi-Fi, else "cellnetwork".
    static std::string deviceNetwork();

    bool enabled() const { return enabled_; }
    void setEnabled(bool enabled) { enabled_ = enabled; }
    std::string requestID() const;
    void setRequestID(std::string requestID);
    std::string logstore() const;
    void setLogstore(std::string logstore);

    // Where this manager's events go: "scheme://host[:port]", or a bare host (https). Empty, the
    // default, and no event leaves the process; an upload client sets its manager's from its
    // VODServiceConfig, and newInstance copies it.
    void setEndpoint(std::string endpoint);
    std::string endpoint() const;

    // The transport this manager queues on (the process-wide one by default).
    std::shared_ptr<AVCVEventTransport> transport() const;
    void setTransport(std::shared_ptr<AVCVEventTransport> transport);

private:
    mutable std::mutex mutex_;  // guards the texts and the transport, which any thread may read
    std::atomic<bool> enabled_{true};
    std::string requestID_;
    std::string logstore_ = "svideo";
    std::string endpoint_;
    std::shared_ptr<AVCVEventTransport> transport_;
};

}  // namespace quorvane
