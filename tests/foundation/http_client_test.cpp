#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <fstream>
#include <mutex>

#include "foundation/http_client.h"
#include "foundation/temp_files.h"
#include "http_test_server.h"
#include "support/net_faults.h"

using namespace quorvane;
using namespace quorvane::foundation;
using quorvane::test::PatternBody;
using quorvane::test::RawHeaderServer;
using quorvane::test::TestServer;

namespace {

constexpr auto kWait = std::chrono::seconds(30);

std::string patternBytes(std::size_t size, std::size_t from = 0) {
    std::string s(size, '\0');
    for (std::size_t i = 0; i < size; ++i) s[i] = static_cast<char>((from + i) % 251);
    return s;
}

// Releases a blocked server handler when the test leaves, even after a failed assertion.
struct Gate {
    std::promise<void> open;
    std::shared_future<void> opened = open.get_future().share();
    ~Gate() { release(); }
    void release() {
        try {
            open.set_value();
        } catch (const std::future_error&) {
        }
    }
    // What a server handler waits on: a copy, so the handler may outlive the gate.
    std::function<void()> waiter() const {
        return [f = opened] { f.wait_for(kWait); };
    }
};

}  // namespace

TEST(HttpClient, SendsThePathAsGivenWithDotAndEmptySegments) {
    // Dot segments are names here (object keys): the request line carries them untouched.
    for (const std::string path : {"/b/x/a/../b", "/b/./c/.", "/b/a//..//"}) {
        RawHeaderServer server;
        HttpClient client;
        HttpRequest request;
        request.url = server.url(path);
        HttpResult result = client.sendSync(request);
        ASSERT_TRUE(result.ok()) << result.error->toString();
        const std::string block = server.headerBlock();
        EXPECT_EQ(block.rfind("GET " + path + " HTTP/1.1\r\n", 0), 0u) << block;
    }
}

TEST(HttpClient, SendsHeadersInGivenOrderWithRepeatsAndEmptyValues) {
    RawHeaderServer server;
    HttpClient client;
    HttpRequest request;
    request.url = server.url("/h");
    request.headers = {{"X-Zulu", "1"}, {"X-Alpha", "2"}, {"X-Zulu", "3"}, {"X-Empty", ""}};
    HttpResult result = client.sendSync(request);
    std::string block = server.headerBlock();
    ASSERT_TRUE(result.ok()) << result.error->toString();
    EXPECT_EQ(result.response.body, "ok");
    auto z1 = block.find("X-Zulu: 1\r\n"), a = block.find("X-Alpha: 2\r\n"), z3 = block.find("X-Zulu: 3\r\n");
    ASSERT_NE(z1, std::string::npos) << block;
    ASSERT_NE(a, std::string::npos) << block;
    ASSERT_NE(z3, std::string::npos) << block;
    EXPECT_LT(z1, a);
    EXPECT_LT(a, z3);
    EXPECT_NE(block.find("X-Empty:"), std::string::npos) << block;
}

TEST(HttpClient, PutStreamsFileRangeByteExactWithContentLengthOnWorkerThread) {
    ScopedTempDir dir;
    const std::string path = dir.path() + "/big.bin";
    const std::size_t fileSize = 3 * 1024 * 1024 + 17, offset = 12345, length = 2 * 1024 * 1024 + 999;
    std::ofstream(path, std::ios::binary) << patternBytes(fileSize);

    TestServer server;
    std::string received, contentLength;
    bool sawExpect = true;
    server.http().Put("/obj", [&](const httplib::Request& req, httplib::Response& res) {
        received = req.body;
        contentLength = req.get_header_value("Content-Length");
        sawExpect = req.has_header("Expect");
        res.set_header("ETag", "\"abc\"");
        res.set_content("", "text/plain");
    });
    server.start();

    Error error;
    HttpRequest request;
    request.method = "PUT";
    request.url = server.url("/obj");
    request.body = makeFileBody(path, offset, length, &error);
    ASSERT_TRUE(request.body) << error.toString();
    std::atomic<std::uint64_t> lastSent{0}, lastTotal{0};
    request.onUploadProgress = [&](std::uint64_t sent, std::uint64_t total) {
        lastSent = sent;
        lastTotal = total;
    };
    std::promise<std::pair<HttpResult, std::thread::id>> done;
    HttpClient client;
    client.send(request, [&](HttpResult r) { done.set_value({std::move(r), std::this_thread::get_id()}); });
    auto [result, thread] = done.get_future().get();

    ASSERT_TRUE(result.ok()) << result.error->toString();
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_EQ(result.response.status, 200);
    EXPECT_EQ(result.response.header("etag"), "\"abc\"");
    EXPECT_EQ(contentLength, std::to_string(length));
    EXPECT_FALSE(sawExpect);
    EXPECT_TRUE(received == patternBytes(length, offset)) << "body differs, size " << received.size();
    EXPECT_EQ(lastSent, length);  // the last progress report runs before the completion
    EXPECT_EQ(lastTotal, length);
}

TEST(HttpClient, MultipartCarriesFieldsAndFileParts) {
    TestServer server;
    httplib::MultipartFormDataMap files;
    server.http().Post("/up", [&](const httplib::Request& req, httplib::Response& res) {
        files = req.files;
        res.set_content("{}", "application/json");
    });
    server.start();

    const std::string big = patternBytes(700 * 1024);
    HttpRequest request;
    request.method = "POST";
    request.url = server.url("/up");
    request.form = std::vector<FormPart>{
        {"token", "t-1", std::nullopt, std::nullopt, nullptr},
        {"file", "\x89PNG-bytes", std::string("a.png"), std::string("image/png"), nullptr},
        {"video", "", std::string("v.mp4"), std::string("video/mp4"), makeStringBody(big)},
    };
    HttpResult result = HttpClient().sendSync(request);
    ASSERT_TRUE(result.ok()) << result.error->toString();
    ASSERT_EQ(files.count("token"), 1u);
    EXPECT_EQ(files.find("token")->second.content, "t-1");
    ASSERT_EQ(files.count("file"), 1u);
    EXPECT_EQ(files.find("file")->second.filename, "a.png");
    EXPECT_EQ(files.find("file")->second.content_type, "image/png");
    EXPECT_EQ(files.find("file")->second.content, "\x89PNG-bytes");
    ASSERT_EQ(files.count("video"), 1u);
    EXPECT_EQ(files.find("video")->second.filename, "v.mp4");
    EXPECT_TRUE(files.find("video")->second.content == big);
}

TEST(HttpClient, ErrorStatusKeepsBodyAndHeadersWithoutTransportError) {
    TestServer server;
    server.http().Get("/fail", [](const httplib::Request&, httplib::Response& res) {
        res.status = 500;
        res.set_header("X-Reason", "boom");
        res.set_content("<Error>InternalError</Error>", "application/xml");
    });
    server.start();
    HttpRequest request;
    request.url = server.url("/fail");
    HttpResult result = HttpClient().sendSync(request);
    ASSERT_TRUE(result.ok());
    EXPECT_EQ(result.response.status, 500);
    EXPECT_EQ(result.response.body, "<Error>InternalError</Error>");
    EXPECT_EQ(result.response.header("x-reason"), "boom");
}

TEST(HttpClient, TransportFailuresCarryCurlCodesAndBadRequestsTheirOwn) {
    int freePort;
    {
        TestServer closed;
        closed.start();
        freePort = std::stoi(closed.url("").substr(std::string("http://127.0.0.1:").size()));
    }
    HttpClient client;
    HttpRequest refused;
    refused.url = "http://127.0.0.1:" + std::to_string(freePort) + "/";
    HttpResult r = client.sendSync(refused);
    ASSERT_FALSE(r.ok());
    EXPECT_EQ(r.error->domain, kHttpErrorDomain);
    EXPECT_EQ(r.error->code, 7);  // CURLE_COULDNT_CONNECT
    EXPECT_EQ(r.error->description.rfind("curl_multi_perform: ", 0), 0u) << r.error->description;

    HttpRequest badUrl;
    badUrl.url = "ftp://example.invalid/x";
    EXPECT_EQ(client.sendSync(badUrl).error->code, kHttpErrorBadRequest);
    badUrl.url = "not a url at all";
    EXPECT_EQ(client.sendSync(badUrl).error->code, kHttpErrorBadRequest);

    struct BrokenBody : BodySource {
        std::uint64_t size() const override { return 10; }
        long long read(char*, std::size_t) override { return -1; }
        bool rewind() override { return true; }
    };
    TestServer server;
    server.http().Put("/x", [](const httplib::Request&, httplib::Response& res) { res.set_content("", "text/plain"); });
    server.start();
    HttpRequest unreadable;
    unreadable.method = "PUT";
    unreadable.url = server.url("/x");
    unreadable.body = std::make_shared<BrokenBody>();
    EXPECT_EQ(client.sendSync(unreadable).error->code, kHttpErrorBadRequest);

    Error error;
    EXPECT_EQ(makeFileBody("/nonexistent/file", 0, 1, &error), nullptr);
    EXPECT_EQ(error.code, kHttpErrorBadRequest);
    ScopedTempDir dir;
    std::ofstream(dir.path() + "/small") << "12345";
    EXPECT_EQ(makeFileBody(dir.path() + "/small", 3, 3, &error), nullptr);
    EXPECT_NE(makeFileBody(dir.path() + "/small", 3, 2, &error), nullptr);
}

TEST(HttpClient, TimeoutEndsAStalledRequest) {
    TestServer server;
    Gate gate;
    server.http().Get("/slow", [wait = gate.waiter()](const httplib::Request&, httplib::Response& res) {
        wait();
        res.set_content("late", "text/plain");
    });
    server.start();
    HttpRequest request;
    request.url = server.url("/slow");
    request.timeoutSeconds = 1;
    HttpResult r = HttpClient().sendSync(request);
    gate.release();
    ASSERT_FALSE(r.ok());
    EXPECT_EQ(r.error->code, 28);  // CURLE_OPERATION_TIMEDOUT
}

// A request on its own (async) with an upper bound on the wait, so a fault shows as a failure and
// not as a hung suite.
std::optional<HttpResult> sendWithin(HttpClient& client, HttpRequest request, std::chrono::seconds bound) {
    auto done = std::make_shared<std::promise<HttpResult>>();
    auto future = done->get_future();
    auto task = client.send(std::move(request), [done](HttpResult r) { done->set_value(std::move(r)); });
    if (future.wait_for(bound) != std::future_status::ready) {
        task->cancel();
        future.wait();
        return std::nullopt;
    }
    return future.get();
}

TEST(HttpClient, IdleTimeoutNoticesAServiceThatNeverAnswers) {
    test::SilentServer silent;
    HttpClient client;
    for (const char* method : {"GET", "PUT"}) {  // waiting for the answer, and after sending a body
        HttpRequest request;
        request.method = method;
        request.url = silent.endpoint() + "/x";
        if (request.method == "PUT") request.body = std::make_shared<PatternBody>(64 * 1024);
        request.idleTimeoutSeconds = 1;
        auto r = sendWithin(client, request, std::chrono::seconds(15));
        ASSERT_TRUE(r.has_value()) << method << ": still waiting on a silent service";
        ASSERT_FALSE(r->ok());
        EXPECT_EQ(r->error->code, 28) << method;  // CURLE_OPERATION_TIMEDOUT
        EXPECT_EQ(foundation::stringAt(r->error->userInfo, "detail"), "no data moved for 1 seconds");
    }
}

TEST(HttpClient, ASlowLinkThatStillMovesIsNeverCut) {
    TestServer server;
    std::atomic<std::size_t> received{0};
    server.http().Put("/up", [&](const httplib::Request& req, httplib::Response& res) {
        received = req.body.size();
        res.set_content("ok", "text/plain");
    });
    server.start();
    // 160 KiB at 64 KiB/s takes two and a half seconds: more than twice the idle time-out.
    test::ThrottledProxy slow(server.port(), 64 * 1024);
    HttpClient client;
    HttpRequest request;
    request.method = "PUT";
    request.url = slow.endpoint() + "/up";
    request.body = std::make_shared<PatternBody>(160 * 1024);
    request.idleTimeoutSeconds = 1;
    auto r = sendWithin(client, request, std::chrono::seconds(30));
    ASSERT_TRUE(r.has_value());
    ASSERT_TRUE(r->ok()) << r->error->toString();
    EXPECT_EQ(r->response.status, 200);
    EXPECT_EQ(received, 160u * 1024);
}

// A send-rate cap belongs to its client: bodies of another client in the same process go at full speed.
TEST(HttpClient, ASendRateCapSlowsOnlyTheBodiesOfItsOwnClient) {
    TestServer server;
    std::atomic<std::size_t> received{0};
    server.http().Put("/up", [&](const httplib::Request& req, httplib::Response& res) {
        received += req.body.size();
        res.set_content("ok", "text/plain");
    });
    server.start();
    constexpr std::size_t kBody = 1536 * 1024;
    HttpClient capped(HttpClientOptions{2, 8, 256 * 1024});  // six seconds for the body
    HttpClient free;
    EXPECT_EQ(capped.sendRateLimit(), 256u * 1024);
    auto put = [&](HttpClient& client, std::promise<bool>& done) {
        HttpRequest request;
        request.method = "PUT";
        request.url = server.url("/up");
        request.body = std::make_shared<PatternBody>(kBody);
        return client.send(request, [&done](HttpResult r) { done.set_value(r.ok()); });
    };
    std::promise<bool> cappedDone, freeDone;
    auto slow = put(capped, cappedDone);
    auto fast = put(free, freeDone);
    auto freeFuture = freeDone.get_future();
    ASSERT_EQ(freeFuture.wait_for(kWait), std::future_status::ready);
    EXPECT_TRUE(freeFuture.get());
    // Ordering, not a stopwatch: the capped body cannot be through when the free one is.
    auto cappedFuture = cappedDone.get_future();
    EXPECT_EQ(cappedFuture.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    capped.setSendRateLimit(0);  // a body started under the cap keeps it, so this only ends the test sooner
    slow->cancel();
    EXPECT_EQ(cappedFuture.wait_for(kWait), std::future_status::ready);
}

TEST(HttpClient, CancelMidUploadCompletesExactlyOnceAsCancelled) {
    TestServer server;
    Gate gate;
    server.http().Put("/slow", [wait = gate.waiter()](const httplib::Request&, httplib::Response&,
                                                       const httplib::ContentReader&) {
        wait();  // reads nothing: the client's send stalls once the socket buffers fill
    });
    server.start();

    std::atomic<int> completions{0};
    std::optional<Error> error;
    std::promise<void> progressed;
    std::atomic<bool> once{false};
    {
        HttpClient client;
        HttpRequest request;
        request.method = "PUT";
        request.url = server.url("/slow");
        request.body = std::make_shared<PatternBody>(1ull << 30);
        request.onUploadProgress = [&](std::uint64_t sent, std::uint64_t) {
            if (sent > 0 && !once.exchange(true)) progressed.set_value();
        };
        auto task = client.send(request, [&](HttpResult r) {
            error = r.error;
            ++completions;
        });
        ASSERT_EQ(progressed.get_future().wait_for(kWait), std::future_status::ready);
        task->cancel();
        task->cancel();
        EXPECT_TRUE(task->isCancelled());
        gate.release();
    }  // the destructor waits for completions
    EXPECT_EQ(completions, 1);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, kHttpErrorCancelled);
}

TEST(HttpClient, DestructionCancelsInFlightAndCancelAfterFinishIsQuiet) {
    TestServer server;
    Gate gate;
    server.http().Get("/hang", [wait = gate.waiter()](const httplib::Request&, httplib::Response&) { wait(); });
    server.http().Get("/fast", [](const httplib::Request&, httplib::Response& res) { res.set_content("x", "text/plain"); });
    server.start();

    std::atomic<int> hung{0}, fast{0};
    std::optional<Error> hungError;
    std::shared_ptr<HttpTask> fastTask;
    {
        HttpClient client;
        HttpRequest r;
        r.url = server.url("/hang");
        client.send(r, [&](HttpResult res) {
            hungError = res.error;
            ++hung;
        });
        r.url = server.url("/fast");
        std::promise<void> fastDone;
        fastTask = client.send(r, [&](HttpResult) {
            ++fast;
            fastDone.set_value();
        });
        fastDone.get_future().wait_for(kWait);
        fastTask->cancel();
    }
    gate.release();
    fastTask->cancel();  // the client is gone: still harmless
    EXPECT_EQ(fast, 1);
    EXPECT_EQ(hung, 1);
    ASSERT_TRUE(hungError);
    EXPECT_EQ(hungError->code, kHttpErrorCancelled);
}

TEST(HttpClient, IsIdleOnlyOnceEveryCompletionHasReturned) {
    TestServer server;
    Gate answer;
    server.http().Get("/held", [wait = answer.waiter()](const httplib::Request&, httplib::Response& res) {
        wait();
        res.set_content("x", "text/plain");
    });
    server.start();
    HttpClient client;
    EXPECT_TRUE(client.waitUntilIdle(std::chrono::milliseconds(0)));

    std::promise<void> entered;
    Gate leave;
    HttpRequest r;
    r.url = server.url("/held");
    client.send(r, [&entered, wait = leave.waiter()](HttpResult) {
        entered.set_value();
        wait();
    });
    EXPECT_FALSE(client.waitUntilIdle(std::chrono::milliseconds(50))) << "the request is still unanswered";
    answer.release();
    ASSERT_EQ(entered.get_future().wait_for(kWait), std::future_status::ready);
    EXPECT_FALSE(client.waitUntilIdle(std::chrono::milliseconds(50))) << "its completion is still running";
    leave.release();
    EXPECT_TRUE(client.waitUntilIdle(kWait));
}

TEST(HttpClient, LastOwnerMayLetGoFromInsideACompletion) {
    TestServer server;
    server.http().Get("/a", [](const httplib::Request&, httplib::Response& res) { res.set_content("a", "text/plain"); });
    server.start();
    auto client = std::make_shared<HttpClient>();
    std::promise<void> released;
    HttpRequest r;
    r.url = server.url("/a");
    client->send(r, [&](HttpResult) {
        client.reset();  // destroys the client on its own worker thread: must neither hang nor crash
        released.set_value();
    });
    ASSERT_EQ(released.get_future().wait_for(kWait), std::future_status::ready);
    EXPECT_EQ(client, nullptr);
}

TEST(HttpClient, ReusesOneConnectionForSequentialRequests) {
    TestServer server;
    std::mutex mutex;
    std::vector<int> clientPorts;
    server.http().Post("/n", [&](const httplib::Request& req, httplib::Response& res) {
        std::lock_guard lock(mutex);
        clientPorts.push_back(req.remote_port);
        res.set_content("ok", "text/plain");
    });
    server.start();
    HttpClient client;
    for (int i = 0; i < 3; ++i) {
        HttpRequest r;
        r.method = "POST";
        r.url = server.url("/n");
        r.body = makeStringBody("payload " + std::to_string(i));
        ASSERT_TRUE(client.sendSync(r).ok());
    }
    ASSERT_EQ(clientPorts.size(), 3u);
    EXPECT_EQ(clientPorts[0], clientPorts[1]);
    EXPECT_EQ(clientPorts[1], clientPorts[2]);
}

TEST(HttpClient, BlockedCompletionDoesNotStallOtherTransfers) {
    TestServer server;
    server.http().Get("/a", [](const httplib::Request&, httplib::Response& res) { res.set_content("a", "text/plain"); });
    server.start();
    HttpClient client(HttpClientOptions{2, 8});
    std::promise<void> secondDone;
    std::atomic<bool> firstSawSecond{false};
    std::promise<void> firstDone;
    HttpRequest r;
    r.url = server.url("/a");
    client.send(r, [&](HttpResult) {
        // Sent only after this one blocks: it can only finish if transfers go on meanwhile.
        client.send(r, [&](HttpResult res) {
            if (res.ok()) secondDone.set_value();
        });
        firstSawSecond = secondDone.get_future().wait_for(kWait) == std::future_status::ready;
        firstDone.set_value();
    });
    firstDone.get_future().wait();
    EXPECT_TRUE(firstSawSecond);
}

TEST(HttpUrlEncoding, KeepsUnreservedAndRoundTrips) {
    EXPECT_EQ(urlEncode("a b&c=d/é~-._"), "a%20b%26c%3Dd%2F%C3%A9~-._");
    EXPECT_EQ(urlEncode(std::string_view("x/rest").substr(0, 0)), "");  // not the bytes after the view
    EXPECT_EQ(urlDecode("a%20b%26c%3Dd%2F%C3%A9~-._"), "a b&c=d/é~-._");
    EXPECT_EQ(urlDecode("100%"), std::nullopt);
    EXPECT_EQ(urlDecode("%zz"), std::nullopt);
}
