#pragma once
// Loopback servers for the HTTP client tests: a cpp-httplib server on a free port, and a
// one-shot socket that records a request's raw header block (httplib sorts headers by name).
#include <asio.hpp>

#include <future>
#include <string>
#include <thread>

#include "support/loopback_http.h"

namespace quorvane::test {

// Accepts one connection, keeps what arrives up to the blank line, answers 200 "ok" and closes.
class RawHeaderServer {
public:
    RawHeaderServer() : acceptor_(io_, asio::ip::tcp::endpoint(asio::ip::make_address("127.0.0.1"), 0)) {
        thread_ = std::thread([this] { serveOne(); });
    }
    ~RawHeaderServer() {
        // A blocked accept() is only woken by a connection: make one in case the test did not.
        asio::error_code ec;
        asio::ip::tcp::socket poke(io_);
        poke.connect(acceptor_.local_endpoint(), ec);
        poke.close(ec);
        if (thread_.joinable()) thread_.join();
    }
    std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port()) + path;
    }
    std::string headerBlock() { return received_.get_future().get(); }

private:
    void serveOne() {
        asio::error_code ec;
        asio::ip::tcp::socket socket(io_);
        acceptor_.accept(socket, ec);
        std::string data;
        if (!ec) asio::read_until(socket, asio::dynamic_buffer(data), "\r\n\r\n", ec);
        received_.set_value(data);
        if (ec) return;
        std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\nok";
        asio::write(socket, asio::buffer(answer), ec);
    }
    asio::io_context io_;
    asio::ip::tcp::acceptor acceptor_;
    std::promise<std::string> received_;
    std::thread thread_;
};

}  // namespace quorvane::test
