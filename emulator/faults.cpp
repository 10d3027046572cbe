#include "emulator/faults.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace quorvane::emulator {

Fault Fault::error(std::string op, int status, std::string code, std::string message) {
    Fault f;
    f.op = std::move(op);
    f.kind = Kind::Error;
    f.status = status;
    f.code = std::move(code);
    f.message = std::move(message);
    return f;
}

Fault Fault::reset(std::string op, std::uint64_t afterBytes) {
    Fault f;
    f.op = std::move(op);
    f.kind = Kind::Reset;
    f.afterBytes = afterBytes;
    return f;
}

Fault Fault::delay(std::string op, int delayMs) {
    Fault f;
    f.op = std::move(op);
    f.kind = Kind::Delay;
    f.delayMs = delayMs;
    return f;
}

Fault Fault::corruptCrc(std::string op) {
    Fault f;
    f.op = std::move(op);
    f.kind = Kind::CorruptCrc;
    return f;
}

void FaultScript::add(Fault fault) {
    std::lock_guard lock(mutex_);
    auto op = fault.op.empty() ? std::string("*") : fault.op;
    queues_[op].push_back(std::move(fault));
}

std::optional<Fault> FaultScript::take(const std::string& operation, const std::string& path) {
    std::lock_guard lock(mutex_);
    for (const auto& name : {operation, std::string("*")}) {
        auto it = queues_.find(name);
        if (it == queues_.end() || it->second.empty()) continue;
        auto fault = it->second.front();
        it->second.pop_front();
        fired_.push_back({fault, operation, path});
        return fault;
    }
    return std::nullopt;
}

void FaultScript::clear() {
    std::lock_guard lock(mutex_);
    queues_.clear();
}

void FaultScript::reset() {
    std::lock_guard lock(mutex_);
    queues_.clear();
    fired_.clear();
}

std::size_t FaultScript::pending() const {
    std::lock_guard lock(mutex_);
    std::size_t n = 0;
    for (const auto& [_, q] : queues_) n += q.size();
    return n;
}

std::vector<FiredFault> FaultScript::fired() const {
    std::lock_guard lock(mutex_);
    return fired_;
}

std::size_t FaultScript::firedCount(const std::string& operation) const {
    std::lock_guard lock(mutex_);
    std::size_t n = 0;
    for (const auto& f : fired_)
        if (operation == "*" || f.operation == operation) ++n;
    return n;
}

namespace {

int portOf(const sockaddr_storage& addr) {
    if (addr.ss_family == AF_INET) return ntohs(reinterpret_cast<const sockaddr_in&>(addr).sin_port);
    if (addr.ss_family == AF_INET6) return ntohs(reinterpret_cast<const sockaddr_in6&>(addr).sin6_port);
    return -1;
}

// remotePort < 0 matches any peer.
bool matches(int fd, int remotePort, int localPort) {
    struct stat st {};
    if (fstat(fd, &st) != 0 || !S_ISSOCK(st.st_mode)) return false;
    sockaddr_storage local{}, peer{};
    socklen_t localLen = sizeof local, peerLen = sizeof peer;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &localLen) != 0) return false;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerLen) != 0) return false;
    return portOf(local) == localPort && (remotePort < 0 || portOf(peer) == remotePort);
}

}  // namespace

bool dropConnection(const std::string& /*remoteAddr*/, int remotePort, int localPort) {
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", ec)) {
        int fd = std::atoi(entry.path().filename().c_str());
        if (!matches(fd, remotePort, localPort)) continue;
        // Linger 0 turns the close that the server library does later into a TCP reset;
        // shutdown stops this exchange now, so no answer reaches the client.
        linger lin{1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &lin, sizeof lin);
        ::shutdown(fd, SHUT_RDWR);
        return true;
    }
    return false;
}

int dropServerConnections(int localPort) {
    int dropped = 0;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", ec)) {
        int fd = std::atoi(entry.path().filename().c_str());
        if (!matches(fd, -1, localPort)) continue;
        ::shutdown(fd, SHUT_RDWR);
        ++dropped;
    }
    return dropped;
}

}  // namespace quorvane::emulator

