// CloudEmulator: lifetime (start/stop/TLS) and the public face over the shared state.
#include <filesystem>
#include <fstream>

#include "emulator/connections.h"
#include "emulator/router.h"
#include "emulator/secret_files.h"
#include "emulator/tls.h"
#include "foundation/log.h"

namespace quorvane::emulator {

CloudEmulator::Impl::Impl(EmulatorOptions o)
    : options(std::move(o)), sts(options.accessKeyId, options.accessKeySecret), storage(options.storageDir) {
    skewSeconds = options.clockSkew.count();
    for (const auto& fault : options.initialFaults) faults.add(fault);
}

foundation::SystemTime CloudEmulator::Impl::now() const {
    return std::chrono::system_clock::now() + std::chrono::seconds(skewSeconds.load());
}

std::string CloudEmulator::Impl::hostPort() const {
    if (!options.advertisedHost.empty()) return options.advertisedHost;
    // A wildcard address is not one a client can dial: hand out the loopback of its family. An IPv6
    // literal goes in brackets, or its colons would read as the port's.
    auto host = options.host == "0.0.0.0" ? std::string("127.0.0.1") : options.host == "::" ? "::1" : options.host;
    if (host.find(':') != std::string::npos && host.front() != '[') host = "[" + host + "]";
    return host + ":" + std::to_string(port.load());
}

std::string CloudEmulator::Impl::endpoint() const { return (options.https ? "https://" : "http://") + hostPort(); }

void CloudEmulator::Impl::clearRecords() {
    std::lock_guard lock(mutex);
    requests.clear();
    videos.clear();
    images.clear();
    reports.clear();
    logEvents.clear();
    enterpriseCalls.clear();
    hostUploads.clear();
    requestLog.clear();
    ossConfigAnswer.reset();
    ticketAnswer.reset();
}

namespace {

// Credentials issued before a restart keep working: their signing key lives in the storage directory.
bool keepStsSigningKey(CloudEmulator::Impl& impl) {
    if (impl.options.storageDir.empty()) return true;
    const auto path = (std::filesystem::path(impl.options.storageDir) / "sts-signing.key").string();
    auto key = readWholeFile(path);
    if (!key || trim(*key).size() < 32) {
        key = randomAlnum(43);
        if (!writePrivateFile(path, *key + "\n")) return false;
    }
    impl.sts.setSigningKey(trim(*key));
    return true;
}

std::unique_ptr<httplib::Server> makeServer(CloudEmulator::Impl& impl) {
    if (!impl.options.https) return makePlainServer(impl.connections);
    TlsMaterial tls;
    std::vector<std::string> names{"127.0.0.1", "localhost", "*.localhost", "::1"};
    if (impl.options.host != "127.0.0.1" && impl.options.host != "0.0.0.0") names.push_back(impl.options.host);
    const bool kept = !impl.options.storageDir.empty();
    auto dir = kept ? std::filesystem::path(impl.options.storageDir) / "tls"
                    : std::filesystem::temp_directory_path() / ("quorvane-cloud-" + randomHex(12, false));
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    // A stored CA is reused, so the CA file clients were given keeps working after a restart.
    if (!makeTlsMaterial(names, tls, kept ? dir.string() : std::string())) return nullptr;
    impl.caFile = (dir / "ca.pem").string();
    if (!kept) std::ofstream(impl.caFile) << tls.caPem;
    auto server = makeTlsServer(impl.connections, tls.serverCert, tls.serverKey);
    if (!server->is_valid()) return nullptr;
    return server;
}

}  // namespace

CloudEmulator::CloudEmulator(EmulatorOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {}

CloudEmulator::~CloudEmulator() {
    stop();
    if (!impl_->caFile.empty() && impl_->options.storageDir.empty()) {
        std::error_code ec;
        std::filesystem::remove_all(std::filesystem::path(impl_->caFile).parent_path(), ec);
    }
}

bool CloudEmulator::start() {
    auto& impl = *impl_;
    if (impl.server) return true;
    if (!impl.storage.open()) {
        impl.startError = "cannot use storage directory " + impl.options.storageDir;
        foundation::logLine("quorvane-cloud: " + impl.startError);
        return false;
    }
    if (!keepStsSigningKey(impl)) {
        impl.startError = "cannot keep the STS signing key in " + impl.options.storageDir;
        foundation::logLine("quorvane-cloud: " + impl.startError);
        return false;
    }
    if (!impl.storage.hasBucket(impl.options.bucket)) impl.storage.createBucket(impl.options.bucket);
    raiseOpenFileLimit();  // a descriptor per connection, and thousands may wait at once
    // Workers serve requests whose head has arrived; waiting connections hold none.
    impl.connections.limits.initialWorkers = static_cast<std::size_t>(std::max(4, impl.options.threads));
    impl.connections.limits.maxWorkers =
        std::max(impl.connections.limits.initialWorkers, static_cast<std::size_t>(std::max(4, impl.options.maxThreads)));
    auto server = makeServer(impl);
    if (!server) {
        impl.startError = "cannot set up TLS";
        foundation::logLine("quorvane-cloud: " + impl.startError);
        return false;
    }
    impl.connections.stopping = false;
    // Debian's server library is built with Nagle's algorithm left on: a body written after its headers
    // on a kept-alive connection would wait for the client's delayed ACK (about 40 ms per answer).
    server->set_tcp_nodelay(true);
    installRoutes(*server, impl);
    int port = impl.options.port;
    std::string problem;
    if (!listenExclusively(*server, impl.options.host, port, problem)) {
        impl.startError = problem;
        foundation::logLine("quorvane-cloud: " + problem);
        return false;
    }
    impl.port = port;
    impl.server = std::move(server);
    impl.listenDone = false;
    impl.thread = std::thread([s = impl.server.get(), &done = impl.listenDone] {
        s->listen_after_bind();
        done = true;
    });
    for (int i = 0; i < 500 && !impl.server->is_running(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return true;
}

void CloudEmulator::stop() {
    auto& impl = *impl_;
    if (!impl.server) return;
    // Connections waiting for a request (or inside one) notice this within a tenth of a second and
    // close, so the server's workers, which it waits for, all return.
    impl.connections.stopping = true;
    impl.server->stop();
    if (impl.thread.joinable()) impl.thread.join();
    impl.server.reset();
}

std::string CloudEmulator::answerRawRequest(const std::string& request) {
    return impl_->server ? answerWithoutConnection(*impl_->server, request) : std::string();
}

bool CloudEmulator::running() const { return impl_->server != nullptr; }
const EmulatorOptions& CloudEmulator::options() const { return impl_->options; }
int CloudEmulator::port() const { return impl_->port; }
std::string CloudEmulator::endpoint() const { return impl_->endpoint(); }
std::string CloudEmulator::hostPort() const { return impl_->hostPort(); }
std::string CloudEmulator::caFile() const { return impl_->caFile; }
std::string CloudEmulator::consoleUrl() const { return impl_->endpoint() + "/_console/"; }
std::string CloudEmulator::startError() const { return impl_->startError; }

StsCredentials CloudEmulator::issueSts() { return issueSts(impl_->options.stsTtl); }
StsCredentials CloudEmulator::issueSts(std::chrono::seconds ttl) { return impl_->sts.issue(impl_->now(), ttl); }
void CloudEmulator::expireToken(const std::string& token) { impl_->sts.expire(token); }
void CloudEmulator::expireAllTokens() { impl_->sts.expireAll(); }
std::vector<StsCredentials> CloudEmulator::issuedCredentials() const { return impl_->sts.all(); }
void CloudEmulator::setClockSkew(std::chrono::seconds skew) { impl_->skewSeconds = skew.count(); }

VodUploadTicket CloudEmulator::createUploadTicket(const std::string& title, const std::string& fileName) {
    return impl_->newVideoTicket(title, fileName, Value::object(), "direct");
}

void CloudEmulator::setOssConfigAnswer(std::optional<Value> answer) {
    std::lock_guard lock(impl_->mutex);
    impl_->ossConfigAnswer = std::move(answer);
}

void CloudEmulator::setTicketAnswer(std::optional<Value> answer) {
    std::lock_guard lock(impl_->mutex);
    impl_->ticketAnswer = std::move(answer);
}

void CloudEmulator::createBucket(const std::string& bucket) { impl_->storage.createBucket(bucket); }

bool CloudEmulator::putObject(const std::string& bucket, const std::string& key, const std::string& bytes,
                              const std::string& contentType) {
    auto writer = impl_->storage.writer(bytes.size());
    if (!writer->write(bytes.data(), bytes.size())) return false;
    ObjectInfo info;
    info.bucket = bucket;
    info.key = key;
    info.size = bytes.size();
    info.etag = "\"" + foundation::hexUpper(writer->md5Raw()) + "\"";
    info.crc64 = writer->crc();
    info.contentType = contentType;
    info.lastModified = ossTime(impl_->now());
    return impl_->storage.storeObject(std::move(info), *writer);
}

void CloudEmulator::addFault(Fault fault) { impl_->faults.add(std::move(fault)); }
void CloudEmulator::addFaults(const std::vector<Fault>& faults) {
    for (const auto& f : faults) impl_->faults.add(f);
}
void CloudEmulator::clearFaults() { impl_->faults.clear(); }
std::size_t CloudEmulator::pendingFaults() const { return impl_->faults.pending(); }
std::vector<FiredFault> CloudEmulator::firedFaults() const { return impl_->faults.fired(); }
std::size_t CloudEmulator::firedCount(const std::string& operation) const { return impl_->faults.firedCount(operation); }

void CloudEmulator::reset() {
    impl_->storage.clear();
    impl_->storage.createBucket(impl_->options.bucket);
    impl_->faults.reset();
    impl_->sts.clear();
    impl_->uploadPartBytes = 0;
    impl_->skewSeconds = impl_->options.clockSkew.count();
    impl_->clearRecords();
}

}  // namespace quorvane::emulator
