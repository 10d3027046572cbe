#pragma once
// Where connections wait for their next request without holding a worker: one thread watches them
// all with epoll, reads (and for TLS, handshakes) as bytes arrive, and hands a connection to `serve`
// once a whole request head is in. Idle or trickling clients so cost a descriptor and a buffer, never
// a thread, however many there are.
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "emulator/connection.h"

namespace quorvane::emulator {

class WaitingRoom {
public:
    using Serve = std::function<void(std::unique_ptr<Connection>)>;
    WaitingRoom(ConnectionControl& control, Serve serve);
    ~WaitingRoom();  // shutdown()
    WaitingRoom(const WaitingRoom&) = delete;
    WaitingRoom& operator=(const WaitingRoom&) = delete;

    // Takes a connection in (a new one, or one whose answer was written); closes it when shut down.
    void admit(std::unique_ptr<Connection> connection);
    // Closes every waiting connection and stops watching; later admissions are closed at once.
    void shutdown();

private:
    struct Entry {
        std::unique_ptr<Connection> connection;
        std::chrono::steady_clock::time_point deadline;
        std::uint32_t events = 0;
    };
    void run();
    void take(std::unique_ptr<Connection> connection);
    void step(Entry& entry);  // may hand the connection on or close it (entry then empty)
    void expire();

    ConnectionControl& control_;
    Serve serve_;
    int epoll_ = -1;
    int wake_ = -1;  // eventfd: admissions and shutdown
    mutable std::mutex mutex_;
    std::vector<std::unique_ptr<Connection>> admitted_;
    bool shut_ = false;
    std::map<int, Entry> entries_;  // by descriptor; only the room's thread touches it
    std::thread thread_;
};

}  // namespace quorvane::emulator
