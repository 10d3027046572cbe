#pragma once
// The emulator's shared state and the per-request exchange every service works through.
#include <httplib.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <set>
#include <thread>

#include "emulator/cloud_emulator.h"
#include "emulator/connections.h"
#include "emulator/faults.h"
#include "emulator/request_log.h"
#include "emulator/storage.h"
#include "emulator/sts.h"
#include "emulator/util.h"
#include "foundation/dates.h"

namespace quorvane::emulator {

struct CloudEmulator::Impl {
    explicit Impl(EmulatorOptions o);

    EmulatorOptions options;
    ConnectionControl connections;
    std::unique_ptr<httplib::Server> server;
    std::thread thread;
    std::atomic<bool> listenDone{true};
    std::atomic<int> port{0};
    std::string caFile;
    std::string startError;  // why start() failed last
    std::atomic<long long> skewSeconds{0};

    StsRegistry sts;
    Storage storage;
    FaultScript faults;
    RequestLog requestLog;
    std::atomic<std::uint64_t> uploadPartBytes{0};

    mutable std::mutex mutex;  // guards everything below
    std::vector<RecordedRequest> requests;
    std::vector<VodVideo> videos;
    std::vector<VodImage> images;
    std::vector<ProgressReport> reports;
    std::vector<LogEvent> logEvents;
    std::vector<EnterpriseCall> enterpriseCalls;
    std::vector<HostUpload> hostUploads;
    std::optional<Value> ossConfigAnswer;
    std::optional<Value> ticketAnswer;
    std::set<std::string> nonces;  // VOD signature nonces seen

    foundation::SystemTime now() const;
    std::string hostPort() const;  // as handed to clients
    std::string endpoint() const;
    VodUploadTicket newVideoTicket(const std::string& title, const std::string& fileName, const Value& params,
                                   const std::string& source);
    void clearRecords();
};

using BodySink = std::function<bool(const char* data, std::size_t size)>;

class Exchange {
public:
    Exchange(CloudEmulator::Impl& impl, const httplib::Request& req, httplib::Response& res,
             const httplib::ContentReader* reader);
    ~Exchange();  // drains an unread body, records the exchange

    CloudEmulator::Impl& impl;
    const httplib::Request& req;
    httplib::Response& res;
    RecordedRequest record;
    std::string requestId = newRequestId();
    const std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
    bool corruptCrc = false;  // set by a CorruptCrc fault

    Pairs headers() const;
    std::optional<std::string> header(const std::string& name) const;
    Pairs query() const;  // decoded, arrival order
    std::optional<std::string> param(const std::string& name) const;
    bool hasParam(const std::string& name) const;

    // Streams the body to `sink`; false when the sink refused or the body could not be read whole.
    bool readBody(const BodySink& sink);
    // The whole body when it is at most `limit` bytes (the rest is drained and nullopt returned).
    std::optional<std::string> readBodyText(std::size_t limit);
    std::optional<std::uint64_t> contentLength() const;
    // Streams a multipart/form-data body part by part.
    bool readMultipart(const httplib::MultipartContentHeader& onPart, const httplib::ContentReceiver& onData);

    // Consults the fault script. Delay and CorruptCrc let the request go on (returns false); Error calls
    // `answerError` and Reset drops the connection (both return true: the request is finished).
    bool applyFault(const std::string& operation, const std::function<void(const Fault&)>& answerError);
    void drop(std::uint64_t afterBytes = 0);
    // Answers without reading the body: the connection closes after the answer instead of draining it.
    void refuseBody();
    bool dropped() const { return dropped_; }

private:
    void saveRecord();

    const httplib::ContentReader* reader_;
    bool recorded_ = false;
    bool bodyConsumed_ = false;
    bool dropped_ = false;
};

// Services. Each answers through the exchange and never throws.
void serveOss(Exchange& ex);
bool isVodRequest(const Exchange& ex);
void serveVod(Exchange& ex);
void serveEnterprise(Exchange& ex);
void serveLogService(Exchange& ex);
void serveHostUpload(Exchange& ex);

}  // namespace quorvane::emulator
