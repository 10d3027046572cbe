// The server under clients that misbehave at the connection level: connections held open without a
// request, idle keep-alive connections, bodies too large to take, ambiguous body lengths; and a server
// that stops while another one listens on the same port of another address, a port some other socket
// holds, or listens on IPv6.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "emulator_test_support.h"
#include "support/port_holder.h"

namespace quorvane::emulator {
namespace {

using namespace testing;

// A raw client socket: requests written byte for byte, answers read with a 20 s time-out.
class RawConnection {
public:
    RawConnection(const char* address, int port) : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_port = htons(static_cast<std::uint16_t>(port));
        inet_pton(AF_INET, address, &addr.sin_addr);
        connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    }
    ~RawConnection() { ::close(fd_); }
    RawConnection(const RawConnection&) = delete;

    bool connected() const { return connected_; }
    bool send(const std::string& text) { return ::send(fd_, text.data(), text.size(), MSG_NOSIGNAL) == ssize_t(text.size()); }
    // The answer's headers and Content-Length bytes of body, or "" when the server closes or is silent.
    std::string answer() {
        for (std::string text;;) {
            if (auto end = text.find("\r\n\r\n"); end != std::string::npos) {
                std::string lower = text;
                for (auto& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
                auto at = lower.find("content-length:");
                if (text.size() >= end + 4 + (at == std::string::npos ? 0 : std::stoul(text.substr(at + 15)))) return text;
            }
            char buf[4096];
            pollfd p{fd_, POLLIN, 0};
            auto n = ::poll(&p, 1, 20000) == 1 ? ::recv(fd_, buf, sizeof buf, 0) : 0;
            if (n <= 0) return "";
            text.append(buf, static_cast<std::size_t>(n));
        }
    }
    // True when the server closes the connection within 20 s.
    bool closedByServer() {
        pollfd p{fd_, POLLIN, 0};
        char buf[256];
        return ::poll(&p, 1, 20000) == 1 && ::recv(fd_, buf, sizeof buf, 0) <= 0;
    }

private:
    int fd_;
    bool connected_ = false;
};

std::string statusLine(const std::string& answer) { return answer.substr(0, answer.find("\r\n")); }

std::string requestText(const std::string& method, const std::string& target, const httplib::Headers& headers,
                        const std::string& extra) {
    std::string text = method + " " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n";
    for (const auto& [k, v] : headers) text += k + ": " + v + "\r\n";
    return text + extra + "\r\n";
}

using ConnectionTest = CloudTest;

// The server's thread count, from the kernel's view of this process.
int threadCount() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("Threads:", 0) == 0) return std::stoi(line.substr(8));
    return -1;
}

TEST_F(ConnectionTest, ConnectionsHeldOpenOrIdleHoldNoWorkerAndStarveNobody) {
    std::vector<std::unique_ptr<RawConnection>> halfOpen, idle;
    for (int i = 0; i < 40; ++i) {
        halfOpen.push_back(std::make_unique<RawConnection>("127.0.0.1", cloud.port()));
        ASSERT_TRUE(halfOpen.back()->send("GET /" + bucket() + "/x HTTP/1.1\r\nHost: 127.0.0.1\r\n"));
    }
    ASSERT_EQ(outcome(get("none")), "404 NoSuchKey") << "no answer while 40 connections wait for the rest of their request";
    for (int i = 0; i < 40; ++i) {
        idle.push_back(std::make_unique<RawConnection>("127.0.0.1", cloud.port()));
        ASSERT_TRUE(idle.back()->send(requestText("GET", kTrack, {}, "")));
        ASSERT_EQ(statusLine(idle.back()->answer()), "HTTP/1.1 200 OK");
    }
    httplib::Client fresh("127.0.0.1", cloud.port());
    fresh.set_read_timeout(20);
    ASSERT_EQ(outcome(fresh.Get(kTrack)), "200") << "no answer while 40 kept-alive connections are idle";

    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);  // start() raised the soft limit as far as it goes
    if (limit.rlim_cur < 4200) GTEST_SKIP() << "only " << limit.rlim_cur << " descriptors: 2000 connections need 4000";
    const int before = threadCount();
    std::vector<std::unique_ptr<RawConnection>> waiting;
    for (int i = 0; i < 2000; ++i) {
        waiting.push_back(std::make_unique<RawConnection>("127.0.0.1", cloud.port()));
        ASSERT_TRUE(waiting.back()->connected()) << i;
        // Every other one has begun its head and goes on sending it a byte at a time.
        if (i % 2) { ASSERT_TRUE(waiting.back()->send("GET /" + bucket() + "/x HTTP/1.1\r\nHost: 1")); }
    }
    for (int i = 1; i < 2000; i += 2) ASSERT_TRUE(waiting[i]->send("2"));
    for (int round = 0; round < 3; ++round)
        ASSERT_EQ(outcome(fresh.Get(kTrack)), "200") << "no answer while 2000 connections wait";
    // Waiting connections hold no thread: far fewer threads than connections were added.
    EXPECT_LT(threadCount() - before, 200);
    // A trickled head, once whole, is answered on its own connection.
    ASSERT_TRUE(waiting[1]->send(".0.0.1\r\n\r\n"));
    EXPECT_EQ(statusLine(waiting[1]->answer()), "HTTP/1.1 403 Forbidden");
}

TEST(CloudConnections, APortHeldByAnotherSocketIsRefusedNotShared) {
    test::PortHolder holder;  // it offers to share the port: we still must not
    const int port = holder.port();
    ASSERT_NE(port, 0);
    EmulatorOptions options;
    options.port = port;
    CloudEmulator cloud(options);
    EXPECT_FALSE(cloud.start());
    EXPECT_FALSE(cloud.running());
    EXPECT_NE(cloud.startError().find("127.0.0.1:" + std::to_string(port) + " is in use"), std::string::npos)
        << cloud.startError();
    holder.release();

    // Nor does a second emulator share the first one's port; once it is free, the port can be taken.
    CloudEmulator first(options);
    ASSERT_TRUE(first.start());
    CloudEmulator second(options);
    EXPECT_FALSE(second.start());
    first.stop();
    EXPECT_TRUE(second.start()) << second.startError();
}

TEST_F(ConnectionTest, BodiesTooLargeAreRefusedFromTheHeaders) {
    const auto target = path("huge.bin");
    auto headers = signedHeaders(root, "PUT", target, "application/octet-stream");
    RawConnection c("127.0.0.1", cloud.port());
    // 5 GiB + 1 announced, none of it sent: the answer must not wait for the body.
    ASSERT_TRUE(c.send(requestText("PUT", target, headers,
                                   "Content-Type: application/octet-stream\r\nContent-Length: 5368709121\r\n")));
    auto answer = c.answer();
    EXPECT_EQ(statusLine(answer), "HTTP/1.1 400 Bad Request");
    EXPECT_NE(answer.find("<Code>EntityTooLarge</Code>"), std::string::npos) << answer;
    EXPECT_TRUE(c.closedByServer());  // the unread body is not taken for the next request
    EXPECT_FALSE(cloud.object(bucket(), "huge.bin"));

    // Exactly the limit is allowed to start: the server waits for the body, so it does not answer.
    RawConnection allowed("127.0.0.1", cloud.port());
    ASSERT_TRUE(allowed.send(requestText("PUT", target, headers,
                                         "Content-Type: application/octet-stream\r\nContent-Length: 5368709120\r\n")));
    ASSERT_TRUE(allowed.send(std::string(1000, 'x')));
    EXPECT_EQ(get("none")->status, 404);  // and others are still served
}

TEST_F(ConnectionTest, AmbiguousBodyLengthsAreRefused) {
    const auto target = path("twice.bin");
    auto headers = signedHeaders(root, "PUT", target, "application/octet-stream");
    for (const char* framing : {"Content-Length: 5\r\nContent-Length: 5\r\n", "Content-Length: 5\r\nContent-Length: 7\r\n",
                                "Content-Length: +5\r\n", "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n"}) {
        RawConnection c("127.0.0.1", cloud.port());
        ASSERT_TRUE(c.send(requestText("PUT", target, headers, std::string("Content-Type: application/octet-stream\r\n") + framing) +
                           "hello"));
        auto answer = c.answer();
        EXPECT_EQ(statusLine(answer), "HTTP/1.1 400 Bad Request") << framing;
        EXPECT_NE(answer.find("<Code>InvalidArgument</Code>"), std::string::npos) << framing;
    }
    EXPECT_FALSE(cloud.object(bucket(), "twice.bin"));
    EXPECT_EQ(put("twice.bin", "hello")->status, 200);

    // The same from a request given as bytes, without a socket.
    EXPECT_EQ(CloudEmulator().answerRawRequest("GET / HTTP/1.1\r\n\r\n"), "");  // not started
    const auto seen = cloud.requests().size();
    EXPECT_EQ(statusLine(cloud.answerRawRequest("GET " + kTrack + " HTTP/1.1\r\nHost: x\r\n\r\n")), "HTTP/1.1 200 OK");
    auto twice = cloud.answerRawRequest("PUT /b/k HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\nxy");
    EXPECT_EQ(statusLine(twice), "HTTP/1.1 400 Bad Request");
    EXPECT_EQ(cloud.requests().size(), seen + 2);
}

TEST(CloudConnections, ListensWithTheSystemsLargestBacklog) {
    CloudEmulator cloud;
    ASSERT_TRUE(cloud.start());
    // ss shows a listening socket's backlog as its Send-Q: "LISTEN 0 4096 127.0.0.1:PORT 0.0.0.0:*".
    const auto command = "ss -Hltn 'sport = :" + std::to_string(cloud.port()) + "' 2>/dev/null";
    std::string state, queued, backlog;
    if (FILE* pipe = ::popen(command.c_str(), "r")) {
        char line[512] = "";
        std::istringstream(std::fgets(line, sizeof line, pipe) ? line : "") >> state >> queued >> backlog;
        ::pclose(pipe);
    }
    if (state != "LISTEN") GTEST_SKIP() << "no ss (iproute2) here to read the backlog";
    int most = 0;
    std::ifstream("/proc/sys/net/core/somaxconn") >> most;
    ASSERT_GT(most, 0);
    EXPECT_EQ(std::stoi(backlog), most);  // the library alone would have left it at 5
}

TEST(CloudConnections, StopEndsIdleConnectionsAndLeavesAnotherServerOnTheSamePortAlone) {
    CloudEmulator first;
    ASSERT_TRUE(first.start());
    const auto request = requestText("GET", kTrack, {}, "");
    RawConnection idle("127.0.0.1", first.port());
    ASSERT_TRUE(idle.send(request));
    ASSERT_EQ(statusLine(idle.answer()), "HTTP/1.1 200 OK");
    EmulatorOptions options;
    options.host = "127.0.0.2";
    options.port = first.port();
    CloudEmulator second(options);
    std::unique_ptr<RawConnection> other;
    if (second.start()) {
        other = std::make_unique<RawConnection>("127.0.0.2", second.port());
        ASSERT_TRUE(other->send(request));
        ASSERT_EQ(statusLine(other->answer()), "HTTP/1.1 200 OK");
    }
    first.stop();
    EXPECT_FALSE(first.running());
    EXPECT_TRUE(idle.closedByServer());
    if (!other) GTEST_SKIP() << "127.0.0.2 is not usable here";
    ASSERT_TRUE(other->send(request));  // the kept-alive connection to the other server still works
    EXPECT_EQ(statusLine(other->answer()), "HTTP/1.1 200 OK");
}

TEST(CloudConnections, Ipv6EndpointIsUsable) {
    EmulatorOptions options;
    options.host = "::1";
    CloudEmulator cloud(options);
    if (!cloud.start()) GTEST_SKIP() << "no IPv6 loopback here";
    EXPECT_EQ(cloud.endpoint(), "http://[::1]:" + std::to_string(cloud.port()));
    EXPECT_EQ(cloud.hostPort(), "[::1]:" + std::to_string(cloud.port()));
    EXPECT_EQ(outcome(httplib::Client(cloud.endpoint()).Get(kTrack)), "200");
}

}  // namespace
}  // namespace quorvane::emulator
