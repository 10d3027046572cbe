#pragma once
// quorvane-cloud: a local stand-in for the services the SDK talks to (OSS with STS tokens, the VOD
// OpenAPI and its upload-progress actions, the enterprise API, host upload URLs, log-service tracking),
// served over real HTTP(S) on loopback, with inspection and fault injection for tests.
//
// Typical test use:
//   quorvane::emulator::CloudEmulator cloud;          // in-memory, random port, signatures verified
//   cloud.start();
//   auto sts = cloud.issueSts();                      // temporary credentials for a client
//   cloud.addFault(Fault::error("UploadPart", 500, "InternalError"));
//   ... run the client against cloud.endpoint() ...
//   cloud.objects(); cloud.uploads(); cloud.firedFaults();
//
// Every member is thread-safe. Inspection calls return snapshots.
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/value.h"

namespace quorvane::emulator {

// One entry of a fault script. Scripts are consumed in order, per operation ("UploadPart", "PutObject",
// "CompleteMultipartUpload", "InitiateMultipartUpload", "ListParts", "CreateUploadVideo", "GetOssConfig", ...);
// "*" matches any operation and is consulted when the operation's own script is empty.
struct Fault {
    enum class Kind {
        Error,       // answer `status` with the service's error body carrying `code`
        Reset,       // close the connection without an answer, after reading `afterBytes` of the body
        Delay,       // wait `delayMs`, then serve the request normally
        CorruptCrc,  // serve normally but answer a wrong "x-oss-hash-crc64ecma"
    };
    std::string op = "*";
    Kind kind = Kind::Error;
    int status = 500;
    std::string code = "InternalError";
    std::string message;
    std::uint64_t afterBytes = 0;
    int delayMs = 0;

    static Fault error(std::string op, int status, std::string code, std::string message = {});
    static Fault reset(std::string op, std::uint64_t afterBytes = 0);
    static Fault delay(std::string op, int delayMs);
    static Fault corruptCrc(std::string op);
};

struct EmulatorOptions {
    std::string host = "127.0.0.1";  // address to bind
    int port = 0;                    // 0 = a free port chosen at start
    // Empty = in-memory; otherwise objects and uploads survive a restart, and so do the HTTPS CA
    // (tls/ca.pem, tls/ca-key.pem) and the key STS credentials are derived from (sts-signing.key).
    std::string storageDir;
    bool https = false;              // serve TLS with a CA + server certificate generated at start (see caFile())
    bool verifySignatures = true;    // false accepts any (or no) signature, still recording everything
    // Object storage takes V4 (OSS4-HMAC-SHA256) signatures always, V1 ones while this is true: false
    // refuses them as the service does for buckets made since September 2025.
    bool acceptV1Signatures = true;
    std::chrono::seconds clockSkew{0};  // the emulator's clock runs this far ahead (negative: behind)
    std::string accessKeyId = "LTAI5tQuorvaneEmuRoot";                   // root key pair
    std::string accessKeySecret = "QuorvaneEmulatorRootSecret0123456789";
    std::string region = "cn-shanghai";
    std::string bucket = "quorvane-media";  // exists from the start; VOD uploads go here
    // Host (and port) handed to clients inside endpoints (UploadAddress, OSS config). Empty = host:port.
    std::string advertisedHost;
    std::chrono::seconds stsTtl{3000};      // lifetime of issued STS credentials
    // Enterprise API: the access token it accepts, and the enterprise id (empty = any id).
    std::string enterpriseAccessToken = "quorvane-enterprise-token";
    std::string enterpriseId;
    // HTTP status of enterprise error bodies ({"code", "msg", "message"}); 200 lets clients read the code.
    int enterpriseErrorStatus = 200;
    // false: ListParts names no part's HashCrc64ecma, as a store that keeps none per part answers.
    bool listPartCrc64 = true;
    std::uint64_t maxObjectSize = 5ULL << 30;  // PutObject / part limit: larger bodies get EntityTooLarge
    int threads = 32;       // server workers started up front (each request being answered holds one)
    int maxThreads = 1024;  // workers are added while all are busy, up to this many
    // One line per request on standard error (time, method, path, operation, status, bytes, ms; no
    // signatures or tokens). Off for embedded use; the quorvane-cloud program turns it on (--quiet: off).
    bool requestLog = false;
    // The console page (consoleUrl()) answers loopback peers only, unless this is set.
    bool consoleForAnyone = false;
    std::vector<Fault> initialFaults;  // scripted from the start (quorvane-cloud --faults FILE)
};

// Temporary credentials, as the STS service names them. Expiration is ISO-8601 UTC ("2024-01-02T03:04:05Z").
struct StsCredentials {
    std::string AccessKeyId;
    std::string AccessKeySecret;
    std::string SecurityToken;
    std::string Expiration;
};

// One request the emulator answered (or dropped).
struct RecordedRequest {
    std::string service;    // "oss", "vod", "enterprise", "log", "host"
    std::string operation;  // "PutObject", "UploadPart", "CreateUploadVideo", "GetOssConfig", "CreateTicket", ...
    std::string method;
    std::string path;       // decoded path
    std::string query;      // raw query text (without '?')
    std::vector<std::pair<std::string, std::string>> headers;  // as received
    std::uint64_t bodySize = 0;  // request body bytes read
    int status = 0;              // status answered; 0 when the connection was reset instead
    std::string errorCode;       // service error code answered, empty on success

    std::optional<std::string> header(const std::string& name) const;  // case-insensitive
};

struct PartInfo {
    int number = 0;
    std::uint64_t size = 0;
    std::string md5Hex;  // lower-case hex of the part's MD5
    std::string etag;    // as answered: quoted upper-case hex MD5
    std::uint64_t crc64 = 0;
    std::string lastModified;  // ISO-8601 with milliseconds
};

enum class UploadState { Open, Completed, Aborted };

struct UploadInfo {
    std::string uploadId;
    std::string bucket;
    std::string key;
    std::string contentType;
    UploadState state = UploadState::Open;
    std::vector<PartInfo> parts;  // ascending part numbers (the parts as stored when completed/aborted)
    std::string initiated;        // ISO-8601 with milliseconds
};

struct ObjectInfo {
    std::string bucket;
    std::string key;
    std::uint64_t size = 0;
    std::string etag;    // quoted, as answered
    std::uint64_t crc64 = 0;
    std::string contentType;
    std::map<std::string, std::string> metadata;  // "x-oss-meta-*" headers, lower-case names
    std::optional<std::string> notificationRaw;   // "x-oss-notification" as sent to Complete
    Value notification;                           // its base64-decoded JSON (or the raw JSON); null if none/undecodable
    std::string lastModified;                     // ISO-8601 with milliseconds
    int partCount = 0;                            // 0 for PutObject
    std::string acl = "default";                  // "default", "private", "public-read", "public-read-write"
    std::vector<std::pair<std::string, std::string>> tags;  // in the order they were set
};

struct VodVideo {
    std::string videoId;
    std::string title;
    std::string fileName;   // as the client sent it
    std::string bucket;
    std::string objectKey;  // where the client must put the bytes
    Value params;           // every request parameter of the create call (object)
    int refreshCount = 0;
    std::string source;     // "CreateUploadVideo" or "ticket"
};

struct VodImage {
    std::string imageId;
    std::string imageType;
    std::string imageExt;
    std::string bucket;
    std::string objectKey;
    std::string imageURL;
    Value params;
};

// What a CreateUploadVideo (or a ticket) hands out: both texts are base64 JSON.
struct VodUploadTicket {
    std::string videoId;
    std::string uploadAddress;
    std::string uploadAuth;
    StsCredentials credentials;
    std::string bucket;
    std::string objectKey;
};

struct ProgressReport {
    std::string action;  // "ReportUploadProgress" or "GetUploadProgress"
    Value fields;        // every form field, decoded (object)
    bool signatureValid = false;  // signed with the placeholder key over the body as sent
    bool authInfoValid = false;   // "AuthInfo" matches the digest of the fixed key and "AuthTimestamp"
};

struct LogEvent {
    std::string logstore;
    Value params;  // every query parameter in arrival order, decoded (object), APIVersion included
};

struct EnterpriseCall {
    std::string operation;  // "GetOssConfig" or "CreateTicket"
    std::string enterpriseId;
    std::string accessToken;
    Value body;    // parsed request JSON (null when absent or malformed)
    int status = 0;
    Value answer;  // JSON answered
};

struct HostUpload {
    std::string path;
    Value fields;  // ordinary form fields (object)
    std::vector<std::pair<std::string, std::string>> headers;
    std::string fileField;  // form field name of the file part ("" when none)
    std::string fileName;
    std::string fileContentType;
    std::string fileBytes;
};

struct FiredFault {
    Fault fault;
    std::string operation;  // the operation it hit
    std::string path;
};

class CloudEmulator {
public:
    explicit CloudEmulator(EmulatorOptions options = {});
    ~CloudEmulator();  // stops
    CloudEmulator(const CloudEmulator&) = delete;
    CloudEmulator& operator=(const CloudEmulator&) = delete;

    // Binds and starts serving on a background thread. False (and a log line, and startError()) when
    // it cannot bind (the port is never shared with another server) or the storage directory cannot
    // be used. Stored state is loaded from the storage directory.
    bool start();
    std::string startError() const;  // why the last start() failed, e.g. "127.0.0.1:9400 is in use ..."
    void stop();
    // Answers the bytes of one HTTP/1.1 request as a plain-HTTP connection would, without a socket,
    // and returns the answer's bytes (empty when not started or serving HTTPS). For fuzzing.
    std::string answerRawRequest(const std::string& request);
    bool running() const;

    const EmulatorOptions& options() const;
    int port() const;
    std::string endpoint() const;  // "http://127.0.0.1:PORT" (https:// with TLS), using advertisedHost if set
    std::string hostPort() const;  // "127.0.0.1:PORT"
    std::string caFile() const;    // PEM of the generated CA when https, else ""
    std::string consoleUrl() const;  // the console page: endpoint() + "/_console/"

    // STS: temporary credentials valid for `ttl` (default options().stsTtl) against OSS and VOD.
    StsCredentials issueSts();
    StsCredentials issueSts(std::chrono::seconds ttl);
    void expireToken(const std::string& securityToken);
    void expireAllTokens();
    std::vector<StsCredentials> issuedCredentials() const;
    // Shifts the emulator's clock (signature skew checks, token expiry, dates answered).
    void setClockSkew(std::chrono::seconds skew);

    // Creates a video as CreateUploadVideo would, without a request (for engine tests).
    VodUploadTicket createUploadTicket(const std::string& title, const std::string& fileName);

    // Enterprise API: replace the default answers (nullopt restores them).
    void setOssConfigAnswer(std::optional<Value> answer);
    void setTicketAnswer(std::optional<Value> answer);

    // Buckets and objects.
    void createBucket(const std::string& bucket);
    bool putObject(const std::string& bucket, const std::string& key, const std::string& bytes,
                   const std::string& contentType = "application/octet-stream");

    // Inspection.
    std::vector<RecordedRequest> requests() const;
    std::vector<RecordedRequest> requests(const std::string& operation) const;
    std::vector<ObjectInfo> objects() const;
    std::optional<ObjectInfo> object(const std::string& bucket, const std::string& key) const;
    std::optional<std::string> objectBytes(const std::string& bucket, const std::string& key) const;
    std::vector<UploadInfo> uploads() const;
    std::optional<UploadInfo> upload(const std::string& uploadId) const;
    std::uint64_t uploadPartBytesReceived() const;  // body bytes read by UploadPart requests, failed ones too
    std::vector<VodVideo> videos() const;
    std::vector<VodImage> images() const;
    std::vector<ProgressReport> progressReports() const;
    std::vector<LogEvent> logEvents() const;
    std::vector<EnterpriseCall> enterpriseCalls() const;
    std::vector<HostUpload> hostUploads() const;

    // Fault injection.
    void addFault(Fault fault);
    void addFaults(const std::vector<Fault>& faults);
    void clearFaults();
    std::size_t pendingFaults() const;
    std::vector<FiredFault> firedFaults() const;
    std::size_t firedCount(const std::string& operation) const;  // "*" counts all

    // Forgets everything: objects, uploads, records, faults, tokens, overrides (the storage directory too).
    void reset();

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace quorvane::emulator
