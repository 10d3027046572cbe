#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <future>
#include <map>
#include <mutex>
#include <tuple>

#include "foundation/http_client.h"
#include "foundation/temp_files.h"
#include "http_test_server.h"
#include "support/net_faults.h"

using namespace quorvane;
using namespace quorvane::foundation;
using quorvane::test::RawHeaderServer;
using quorvane::test::LoopbackHttpServer;

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
    // A copy of the future, so the handler may outlive the gate.
    std::function<void()> waiter() const {
        return [f = opened] { f.wait_for(kWait); };
    }
};

HttpRequest request(const std::string& url, const char* method = "GET", std::shared_ptr<BodySource> body = nullptr) {
    HttpRequest r;
    r.method = method;
    r.url = url;
    r.body = std::move(body);
    return r;
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

// One loopback server for every case: "/held" and "/stall" wait for the gate, "/up" and "/form"
// keep what arrived.
class HttpClientTest : public ::testing::Test {
protected:
    struct Seen {
        std::string body, contentLength;
        bool expect;
        int port;
        httplib::MultipartFormDataMap files;
    };
    HttpClientTest() {
        auto& http = server.http();
        auto keep = [this](const httplib::Request& req, httplib::Response& res) {
            std::lock_guard lock(mutex);
            seen.push_back({req.body, req.get_header_value("Content-Length"), req.has_header("Expect"), req.remote_port,
                            req.files});
            res.set_header("ETag", "\"abc\"");
            res.set_content("ok", "text/plain");
        };
        http.Put("/up", keep);
        http.Post("/form", keep);
        http.Get("/a", [](const httplib::Request&, httplib::Response& res) { res.set_content("a", "text/plain"); });
        http.Get("/held", [wait = gate.waiter()](const httplib::Request&, httplib::Response& res) {
            wait();
            res.set_content("late", "text/plain");
        });
        // Reads nothing: the client's send stalls once the socket buffers fill.
        http.Put("/stall", [wait = gate.waiter()](const httplib::Request&, httplib::Response&,
                                                  const httplib::ContentReader&) { wait(); });
        http.Get("/fail", [](const httplib::Request&, httplib::Response& res) {
            res.status = 500;
            res.set_header("X-Reason", "boom");
            res.set_content("<Error>InternalError</Error>", "application/xml");
        });
        server.start();
    }
    std::vector<Seen> arrived() {
        std::lock_guard lock(mutex);
        return seen;
    }

    std::mutex mutex;
    std::vector<Seen> seen;
    LoopbackHttpServer server;
    Gate gate;  // after the server: released before it stops
};

}  // namespace

TEST(HttpClient, SendsThePathAsGivenAndHeadersInGivenOrderWithRepeatsAndEmptyValues) {
    // Dot segments are names here (object keys): the request line carries them untouched.
    for (const std::string path : {"/b/x/a/../b", "/b/./c/.", "/b/a//..//"}) {
        RawHeaderServer server;
        HttpRequest r = request(server.url(path));
        r.headers = {{"X-Zulu", "1"}, {"X-Alpha", "2"}, {"X-Zulu", "3"}, {"X-Empty", ""}};
        HttpResult result = HttpClient().sendSync(r);
        const std::string block = server.headerBlock();
        ASSERT_TRUE(result.ok()) << result.error->toString();
        EXPECT_EQ(result.response.body, "ok");
        EXPECT_EQ(block.rfind("GET " + path + " HTTP/1.1\r\n", 0), 0u) << block;
        auto z1 = block.find("X-Zulu: 1\r\n"), a = block.find("X-Alpha: 2\r\n"), z3 = block.find("X-Zulu: 3\r\n");
        ASSERT_NE(z3, std::string::npos) << block;
        EXPECT_LT(z1, a);
        EXPECT_LT(a, z3);
        EXPECT_NE(block.find("X-Empty:"), std::string::npos) << block;
    }
}

TEST_F(HttpClientTest, PutStreamsFileRangeByteExactWithContentLengthOnWorkerThread) {
    ScopedTempDir dir;
    const std::string path = dir.path() + "/big.bin";
    const std::size_t fileSize = 3 * 1024 * 1024 + 17, offset = 12345, length = 2 * 1024 * 1024 + 999;
    std::ofstream(path, std::ios::binary) << patternBytes(fileSize);

    Error error;
    HttpRequest r = request(server.url("/up"), "PUT", makeFileBody(path, offset, length, &error));
    ASSERT_TRUE(r.body) << error.toString();
    std::atomic<std::uint64_t> lastSent{0}, lastTotal{0};
    r.onUploadProgress = [&](std::uint64_t sent, std::uint64_t total) {
        lastSent = sent;
        lastTotal = total;
    };
    std::promise<std::pair<HttpResult, std::thread::id>> done;
    HttpClient client;
    client.send(r, [&](HttpResult res) { done.set_value({std::move(res), std::this_thread::get_id()}); });
    auto [result, thread] = done.get_future().get();

    ASSERT_TRUE(result.ok()) << result.error->toString();
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_EQ(result.response.status, 200);
    EXPECT_EQ(result.response.header("etag"), "\"abc\"");
    auto got = arrived();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].contentLength, std::to_string(length));
    EXPECT_FALSE(got[0].expect);
    EXPECT_TRUE(got[0].body == patternBytes(length, offset)) << "body differs, size " << got[0].body.size();
    EXPECT_EQ(lastSent, length);  // the last progress report runs before the completion
    EXPECT_EQ(lastTotal, length);
}

TEST_F(HttpClientTest, MultipartCarriesFieldsAndFileParts) {
    const std::string big = patternBytes(700 * 1024);
    HttpRequest r = request(server.url("/form"), "POST");
    r.form = std::vector<FormPart>{
        {"token", "t-1", std::nullopt, std::nullopt, nullptr},
        {"file", "\x89PNG-bytes", std::string("a.png"), std::string("image/png"), nullptr},
        {"video", "", std::string("v.mp4"), std::string("video/mp4"), makeStringBody(big)},
    };
    HttpResult result = HttpClient().sendSync(r);
    ASSERT_TRUE(result.ok()) << result.error->toString();
    using Part = std::tuple<std::string, std::string, std::string>;  // file name, type, content
    const auto files = arrived().at(0).files;
    EXPECT_EQ(files.size(), 3u);
    std::map<std::string, Part> parts;
    for (const auto& [name, f] : files) parts[name] = Part{f.filename, f.content_type, f.content};
    EXPECT_EQ(parts["token"], (Part{"", "", "t-1"}));
    EXPECT_EQ(parts["file"], (Part{"a.png", "image/png", "\x89PNG-bytes"}));
    EXPECT_TRUE(parts["video"] == (Part{"v.mp4", "video/mp4", big}));
}

// HTTP error statuses are answers; transport failures carry curl's codes and bad requests their own.
TEST_F(HttpClientTest, ErrorStatusIsAnAnswerAndTransportFailuresAreErrors) {
    HttpClient client;
    HttpResult answer = client.sendSync(request(server.url("/fail")));
    ASSERT_TRUE(answer.ok());
    EXPECT_EQ(answer.response.status, 500);
    EXPECT_EQ(answer.response.body, "<Error>InternalError</Error>");
    EXPECT_EQ(answer.response.header("x-reason"), "boom");

    int freePort;
    {
        LoopbackHttpServer closed;
        closed.start();
        freePort = closed.port();
    }
    HttpResult r = client.sendSync(request("http://127.0.0.1:" + std::to_string(freePort) + "/"));
    ASSERT_FALSE(r.ok());
    EXPECT_EQ(r.error->domain, kHttpErrorDomain);
    EXPECT_EQ(r.error->code, 7);  // CURLE_COULDNT_CONNECT
    EXPECT_EQ(r.error->description.rfind("curl_multi_perform: ", 0), 0u) << r.error->description;
    EXPECT_EQ(client.sendSync(request("ftp://example.invalid/x")).error->code, kHttpErrorBadRequest);
    EXPECT_EQ(client.sendSync(request("not a url at all")).error->code, kHttpErrorBadRequest);

    struct BrokenBody : BodySource {
        std::uint64_t size() const override { return 10; }
        long long read(char*, std::size_t) override { return -1; }
        bool rewind() override { return true; }
    };
    EXPECT_EQ(client.sendSync(request(server.url("/up"), "PUT", std::make_shared<BrokenBody>())).error->code,
              kHttpErrorBadRequest);

    Error error;
    EXPECT_EQ(makeFileBody("/nonexistent/file", 0, 1, &error), nullptr);
    EXPECT_EQ(error.code, kHttpErrorBadRequest);
    ScopedTempDir dir;
    std::ofstream(dir.path() + "/small") << "12345";
    EXPECT_EQ(makeFileBody(dir.path() + "/small", 3, 3, &error), nullptr);
    EXPECT_NE(makeFileBody(dir.path() + "/small", 3, 2, &error), nullptr);
}

TEST(HttpClient, IdleAndWholeRequestTimeoutsEndARequestToAServiceThatNeverAnswers) {
    test::SilentServer silent;
    HttpClient client;
    struct Case {
        const char* method;
        long idle, whole;
    };
    // Waiting for the answer, after sending a body, and under the cap on the whole request alone.
    for (auto c : {Case{"GET", 1, 0}, Case{"PUT", 1, 0}, Case{"GET", 0, 1}}) {
        SCOPED_TRACE(std::string(c.method) + (c.whole ? " whole" : " idle"));
        HttpRequest r = request(silent.endpoint() + "/x", c.method);
        if (r.method == "PUT") r.body = makeStringBody(std::string(64 * 1024, 'x'));
        r.idleTimeoutSeconds = c.idle;
        r.timeoutSeconds = c.whole;
        auto result = sendWithin(client, r, std::chrono::seconds(15));
        ASSERT_TRUE(result.has_value()) << "still waiting on a silent service";
        ASSERT_FALSE(result->ok());
        EXPECT_EQ(result->error->code, 28);  // CURLE_OPERATION_TIMEDOUT
        if (c.idle) {
            EXPECT_EQ(foundation::stringAt(result->error->userInfo, "detail"), "no data moved for 1 seconds");
        }
    }
}

TEST_F(HttpClientTest, ASlowLinkThatStillMovesIsNeverCut) {
    // 160 KiB at 64 KiB/s takes two and a half seconds: more than twice the idle time-out.
    test::ThrottledProxy slow(server.port(), 64 * 1024);
    HttpClient client;
    HttpRequest r = request(slow.endpoint() + "/up", "PUT", makeStringBody(std::string(160 * 1024, 'x')));
    r.idleTimeoutSeconds = 1;
    auto result = sendWithin(client, r, std::chrono::seconds(30));
    ASSERT_TRUE(result.has_value());
    ASSERT_TRUE(result->ok()) << result->error->toString();
    EXPECT_EQ(result->response.status, 200);
    EXPECT_EQ(arrived().at(0).body.size(), 160u * 1024);
}

// A send-rate cap belongs to its client: bodies of another client in the same process go at full speed.
TEST_F(HttpClientTest, ASendRateCapSlowsOnlyTheBodiesOfItsOwnClient) {
    HttpClient capped(HttpClientOptions{2, 8, 256 * 1024});  // six seconds for the body
    HttpClient free;
    auto put = [&](HttpClient& client, std::promise<bool>& done) {
        return client.send(request(server.url("/up"), "PUT", makeStringBody(std::string(1536 * 1024, 'x'))),
                           [&done](HttpResult r) { done.set_value(r.ok()); });
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

// A cancelled upload and a request still in flight when its client goes each complete exactly once,
// as cancelled; cancelling a finished task, even after its client has gone, is harmless.
TEST_F(HttpClientTest, CancelAndDestructionCompleteInFlightRequestsOnceAsCancelled) {
    std::atomic<int> uploads{0}, hung{0}, fast{0};
    std::optional<Error> uploadError, hungError;
    std::promise<void> progressed;
    std::atomic<bool> once{false};
    std::shared_ptr<HttpTask> fastTask;
    {
        HttpClient client;
        // Far more than the socket buffers hold.
        HttpRequest r = request(server.url("/stall"), "PUT", makeStringBody(std::string(64 << 20, 'x')));
        r.onUploadProgress = [&](std::uint64_t sent, std::uint64_t) {
            if (sent > 0 && !once.exchange(true)) progressed.set_value();
        };
        auto upload = client.send(r, [&](HttpResult res) {
            uploadError = res.error;
            ++uploads;
        });
        client.send(request(server.url("/held")), [&](HttpResult res) {
            hungError = res.error;
            ++hung;
        });
        std::promise<void> fastDone;
        fastTask = client.send(request(server.url("/a")), [&](HttpResult) {
            ++fast;
            fastDone.set_value();
        });
        ASSERT_EQ(progressed.get_future().wait_for(kWait), std::future_status::ready);
        upload->cancel();
        upload->cancel();
        EXPECT_TRUE(upload->isCancelled());
        ASSERT_EQ(fastDone.get_future().wait_for(kWait), std::future_status::ready);
        fastTask->cancel();
    }  // the destructor waits for completions
    gate.release();
    fastTask->cancel();  // the client is gone: still harmless
    EXPECT_EQ(uploads, 1);
    EXPECT_EQ(hung, 1);
    EXPECT_EQ(fast, 1);
    ASSERT_TRUE(uploadError && hungError);
    EXPECT_EQ(uploadError->code, kHttpErrorCancelled);
    EXPECT_EQ(hungError->code, kHttpErrorCancelled);
}

TEST_F(HttpClientTest, IsIdleOnlyOnceEveryCompletionHasReturned) {
    HttpClient client;
    EXPECT_TRUE(client.waitUntilIdle(std::chrono::milliseconds(0)));
    std::promise<void> entered;
    Gate leave;
    client.send(request(server.url("/held")), [&entered, wait = leave.waiter()](HttpResult) {
        entered.set_value();
        wait();
    });
    EXPECT_FALSE(client.waitUntilIdle(std::chrono::milliseconds(50))) << "the request is still unanswered";
    gate.release();
    ASSERT_EQ(entered.get_future().wait_for(kWait), std::future_status::ready);
    EXPECT_FALSE(client.waitUntilIdle(std::chrono::milliseconds(50))) << "its completion is still running";
    leave.release();
    EXPECT_TRUE(client.waitUntilIdle(kWait));
}

TEST_F(HttpClientTest, ReusesOneConnectionForSequentialRequests) {
    HttpClient client;
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(client.sendSync(request(server.url("/up"), "PUT", makeStringBody("payload " + std::to_string(i)))).ok());
    auto got = arrived();
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0].port, got[1].port);
    EXPECT_EQ(got[1].port, got[2].port);
}

// Completions run on the client's worker thread: one may block, or drop the last owner of its client.
TEST_F(HttpClientTest, ACompletionMayBlockOtherTransfersGoOnOrLetTheLastOwnerGo) {
    auto client = std::make_shared<HttpClient>(HttpClientOptions{2, 8});
    std::promise<void> secondDone, released;
    std::atomic<bool> firstSawSecond{false};
    const HttpRequest r = request(server.url("/a"));
    client->send(r, [&](HttpResult) {
        // Sent only after this one blocks: it can only finish if transfers go on meanwhile.
        client->send(r, [&](HttpResult res) {
            if (res.ok()) secondDone.set_value();
        });
        firstSawSecond = secondDone.get_future().wait_for(kWait) == std::future_status::ready;
        client.reset();  // destroys the client on its own worker thread: must neither hang nor crash
        released.set_value();
    });
    ASSERT_EQ(released.get_future().wait_for(kWait), std::future_status::ready);
    EXPECT_TRUE(firstSawSecond);
    EXPECT_EQ(client, nullptr);
}

TEST(HttpUrlEncoding, KeepsUnreservedAndRoundTrips) {
    EXPECT_EQ(urlEncode("a b&c=d/é~-._"), "a%20b%26c%3Dd%2F%C3%A9~-._");
    EXPECT_EQ(urlEncode(std::string_view("x/rest").substr(0, 0)), "");  // not the bytes after the view
    EXPECT_EQ(urlDecode("a%20b%26c%3Dd%2F%C3%A9~-._"), "a b&c=d/é~-._");
    EXPECT_EQ(urlDecode("100%"), std::nullopt);
    EXPECT_EQ(urlDecode("%zz"), std::nullopt);
}
