#pragma once
// Fault scripts: per-operation queues consumed in order, with a record of what fired.
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "emulator/cloud_emulator.h"

namespace quorvane::emulator {

class FaultScript {
public:
    void add(Fault fault);
    // The next fault for this operation (its own queue first, then "*"), recorded as fired.
    std::optional<Fault> take(const std::string& operation, const std::string& path);
    void clear();  // pending faults only
    void reset();  // pending and fired
    std::size_t pending() const;
    std::vector<FiredFault> fired() const;
    std::size_t firedCount(const std::string& operation) const;

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::deque<Fault>> queues_;
    std::vector<FiredFault> fired_;
};

// Drops the TCP connection a request arrived on, without an answer (the peer sees a reset).
// Found by matching the request's local and remote endpoints against this process's sockets.
bool dropConnection(const std::string& remoteAddr, int remotePort, int localPort);
// Shuts down every accepted connection on the server's port, so idle keep-alive connections do
// not hold a stopping server for the whole keep-alive time-out. Returns how many it found.
int dropServerConnections(int localPort);

}  // namespace quorvane::emulator
