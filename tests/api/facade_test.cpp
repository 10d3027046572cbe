// The façade's services: failure values, timestamp, system facts, temporary files; on the headless
// device vibration, delay, clipboard, alerts and HUDs; and the request helpers against a real HTTP
// server on loopback.
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "api/QuorvaneApiManager.h"
#include "foundation/dispatch.h"
#include "foundation/HttpSessionManager.h"
#include "foundation/temp_files.h"
#include "platform/headless/headless_platform.h"
#include "platform/headless/headless_presenter.h"
#include "support/net_faults.h"
#include "upload_bridge/ApiOSSUploadTool.h"

namespace quorvane::testing {

// Loopback HTTP servers and main-loop waiting.

// Runs the main loop until `done` holds (generous timeout for a loaded machine).
inline bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    return foundation::MainLoop::instance().runUntil(done, timeout);
}

// Keeps the main loop turning for a while, so a stray second callback would show.
inline void settle(std::chrono::milliseconds time = std::chrono::milliseconds(150)) {
    foundation::MainLoop::instance().runUntil([] { return false; }, time);
}

// A cpp-httplib server on 127.0.0.1 and a free port, answering every GET/POST with the scripted
// status and body and recording what arrived. Stopped when it goes out of scope.
class LoopbackServer {
public:
    struct Received {
        std::string method, path, body;
        httplib::Headers headers;
        httplib::Params params;
        httplib::MultipartFormDataMap parts;
    };

    LoopbackServer() {
        auto handler = [this](const httplib::Request& req, httplib::Response& res) {
            std::lock_guard lock(mutex_);
            received_.push_back({req.method, req.path, req.body, req.headers, req.params, req.files});
            res.status = status_;
            res.set_content(body_, "application/json");
        };
        server_.set_keep_alive_max_count(1);  // no idle connection holds up stop()
        server_.Get(".*", handler);
        server_.Post(".*", handler);
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~LoopbackServer() {
        server_.stop();
        thread_.join();
    }
    void answer(int status, std::string body) {
        std::lock_guard lock(mutex_);
        status_ = status;
        body_ = std::move(body);
    }
    std::string url(const std::string& path = "/") const { return "http://127.0.0.1:" + std::to_string(port_) + path; }
    std::vector<Received> received() const {
        std::lock_guard lock(mutex_);
        return received_;
    }

private:
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
    mutable std::mutex mutex_;
    std::vector<Received> received_;
    int status_ = 200;
    std::string body_ = "{}";
};

// Accepts one connection on loopback and keeps the request's header block as the bytes that
// arrived. cpp-httplib drops headers whose value is empty, so checks on those read the raw lines.
class RawCaptureServer {
public:
    RawCaptureServer() {
        listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(listener_, 4);
        socklen_t length = sizeof address;
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { serveOne(); });
    }
    ~RawCaptureServer() {
        ::shutdown(listener_, SHUT_RDWR);
        thread_.join();
        ::close(listener_);
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/raw"; }
    // The header lines, each ending in CRLF, once the request has arrived.
    std::string head() const {
        std::lock_guard lock(mutex_);
        return head_;
    }

private:
    void serveOne() {
        int connection = ::accept(listener_, nullptr, nullptr);
        if (connection < 0) return;
        std::string bytes;
        char buffer[4096];
        std::size_t end;
        for (ssize_t n; (end = bytes.find("\r\n\r\n")) == std::string::npos &&
                        (n = ::recv(connection, buffer, sizeof buffer, 0)) > 0;)
            bytes.append(buffer, static_cast<std::size_t>(n));
        {
            std::lock_guard lock(mutex_);
            head_ = bytes.substr(0, end == std::string::npos ? bytes.size() : end + 2);
        }
        // Answer without reading the body; the connection closes after it.
        const char reply[] = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\n{}";
        ::send(connection, reply, sizeof reply - 1, MSG_NOSIGNAL);
        ::shutdown(connection, SHUT_WR);
        while (::recv(connection, buffer, sizeof buffer, 0) > 0) continue;
        ::close(connection);
    }
    int listener_ = -1;
    int port_ = 0;
    std::thread thread_;
    mutable std::mutex mutex_;
    std::string head_;
};

// A URL on loopback where nothing listens: the port of a server that has been stopped.
inline std::string unreachableUrl() { return LoopbackServer().url("/gone"); }

}  // namespace quorvane::testing

namespace quorvane {
namespace {

namespace fs = std::filesystem;
using platform::kSystemSoundID_Vibrate;
using platform::headless::HeadlessPresenter;

class Facade : public ::testing::Test {
protected:
    platform::headless::HeadlessDevice device = platform::headless::installHeadlessDevice();
    std::shared_ptr<HeadlessPresenter> screen = HeadlessPresenter::create();

    int plays() const { return device.systemSound->plays(kSystemSoundID_Vibrate); }
    // After the loop has stopped and the last playback ended, no further play may happen.
    void expectLoopStopped() {
        ASSERT_TRUE(testing::waitFor([&] { return device.systemSound->idle(); }));
        int settled = plays();
        testing::settle();
        EXPECT_EQ(plays(), settled);
        EXPECT_FALSE(device.systemSound->hasCompletion(kSystemSoundID_Vibrate));
    }
};

TEST_F(Facade, VibrationLoopsUntilStoppedOrItsDurationEnds) {
    QuorvaneApiManager::startVibrate();
    ASSERT_TRUE(testing::waitFor([&] { return plays() >= 4; }));
    QuorvaneApiManager::stopVibrate();
    EXPECT_EQ(device.systemSound->disposals(kSystemSoundID_Vibrate), 1);
    expectLoopStopped();

    QuorvaneApiManager::startVibrate();
    QuorvaneApiManager::startVibrate();
    EXPECT_EQ(device.systemSound->registrations(kSystemSoundID_Vibrate), 3);
    QuorvaneApiManager::stopVibrate();
    expectLoopStopped();

    const int disposed = device.systemSound->disposals(kSystemSoundID_Vibrate), played = plays();
    QuorvaneApiManager::vibrateWithDuration(0.5f);
    ASSERT_TRUE(
        testing::waitFor([&] { return device.systemSound->disposals(kSystemSoundID_Vibrate) == disposed + 1; }));
    EXPECT_GE(plays(), played + 2) << "the vibration looped before it stopped";
    expectLoopStopped();
}

TEST_F(Facade, GCDDelayRunsOnceOffTheMainThread) {
    std::atomic<int> runs{0};
    std::atomic<bool> onMain{true};
    QuorvaneApiManager::GCDDelay(0.01f, [&] {
        onMain = foundation::isMainThread();
        ++runs;
    });
    QuorvaneApiManager::GCDDelay(-1.0f, [&] { ++runs; });  // a past delay runs at once
    QuorvaneApiManager::GCDDelay(0.01f, nullptr);
    ASSERT_TRUE(testing::waitFor([&] { return runs == 2; }));
    testing::settle();
    EXPECT_EQ(runs, 2);
    EXPECT_FALSE(onMain);
}

TEST_F(Facade, JumpToSettingOffersTheSettingsPageAndAlertsLeaveOutAnAbsentButton) {
    QuorvaneApiManager::jumpToSetting(screen);
    auto alert = screen->lastAlert();
    ASSERT_TRUE(alert);
    EXPECT_EQ(alert->title(), "定位服务未开启");
    EXPECT_EQ(alert->message(), "请在设置-隐私中开启“定位”服务");
    EXPECT_EQ(alert->preferredStyle(), platform::AlertControllerStyle::Alert);
    auto actions = alert->actions();
    ASSERT_EQ(actions.size(), 2u);
    EXPECT_EQ(actions[0].title, "暂不");
    EXPECT_EQ(actions[1].title, "前往");

    EXPECT_TRUE(alert->tap("暂不"));
    EXPECT_TRUE(device.urlOpener->opened().empty());
    EXPECT_EQ(screen->presentedViewController(), nullptr);

    QuorvaneApiManager::jumpToSetting(screen);
    EXPECT_TRUE(screen->lastAlert()->tap("前往"));
    auto opened = device.urlOpener->opened();
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened[0].url, platform::kOpenSettingsURLString);
    EXPECT_TRUE(opened[0].opened);
    EXPECT_EQ(screen->presentedViewController(), nullptr);

    QuorvaneApiManager::jumpToSetting(nullptr);  // nothing to present from: nothing happens

    // A two-button alert leaves out an absent left button.
    int left = 0, right = 0;
    QuorvaneApiManager::presentAlertControllerWithController(screen, "t", std::nullopt, std::nullopt, "OK",
                                                             [&] { ++left; }, [&] { ++right; });
    alert = screen->lastAlert();
    ASSERT_EQ(alert->actions().size(), 1u);
    EXPECT_FALSE(alert->tap(1));
    EXPECT_TRUE(alert->tap(0));
    EXPECT_EQ(right, 1);
    EXPECT_EQ(left, 0);

    QuorvaneApiManager::presentAlertControllerWithController(screen, "t", "m", "L", "R", nullptr, nullptr);
    EXPECT_TRUE(screen->lastAlert()->tap("L"));  // absent blocks: tapping is harmless
}

// Copying shows the alert as a text HUD only when given; WeChat opens when installed, else the message is
// copied and the user asked to install it; a spinner HUD stays until hidden.
TEST_F(Facade, ClipboardWeChatAndHuds) {
    QuorvaneApiManager::copyMessage("first", "", screen);
    QuorvaneApiManager::copyMessage("second", std::nullopt, screen);
    EXPECT_EQ(device.pasteboard->string(), "second");
    EXPECT_TRUE(screen->huds().empty());
    QuorvaneApiManager::copyMessage("third", "复制成功", screen);
    EXPECT_EQ(device.pasteboard->string(), "third");
    ASSERT_EQ(screen->huds().size(), 1u);
    auto hud = screen->huds()[0];
    EXPECT_EQ(hud->detailsText(), "复制成功");
    EXPECT_EQ(hud->mode(), platform::Hud::Text);
    EXPECT_TRUE(testing::waitFor([&] { return hud->isRemoved(); }));
    QuorvaneApiManager::copyMessage(std::nullopt, "x", nullptr);  // absent text and controller
    EXPECT_EQ(device.pasteboard->string(), std::nullopt);

    QuorvaneApiManager::sendMessage("hi", screen);
    EXPECT_EQ(device.pasteboard->string(), "hi");
    EXPECT_FALSE(QuorvaneApiManager::isWeChatInstalled());
    EXPECT_TRUE(device.urlOpener->opened().empty());
    ASSERT_EQ(screen->huds().size(), 2u);
    EXPECT_EQ(screen->huds()[1]->detailsText(), "请先安装微信");
    device.urlOpener->installScheme("wechat");
    EXPECT_TRUE(QuorvaneApiManager::isWeChatInstalled());
    QuorvaneApiManager::openWeChat(screen);
    ASSERT_EQ(device.urlOpener->opened().size(), 1u);
    EXPECT_EQ(device.urlOpener->opened()[0].url, "wechat:");
    EXPECT_EQ(screen->huds().size(), 2u);

    hud = QuorvaneApiManager::showMBProgressHUDIndeterminateWithContent("上传中", screen);
    ASSERT_EQ(screen->huds().size(), 3u);
    EXPECT_EQ(hud, screen->huds()[2]);
    EXPECT_EQ(hud->mode(), platform::Hud::Indeterminate);
    EXPECT_EQ(hud->detailsText(), "上传中");
    EXPECT_FALSE(hud->isHidden());
    QuorvaneApiManager::hideMBProgressHUD(hud);
    EXPECT_TRUE(hud->isRemoved());
    QuorvaneApiManager::hideMBProgressHUD(nullptr);
    EXPECT_NE(QuorvaneApiManager::showMBProgressHUDIndeterminateWithContent("x", nullptr), nullptr);
}

TEST(FacadeErrors, NativeCodesAreTwoKeyDictionariesWithTheirTexts) {
    // As the host reads them: written out, code first.
    EXPECT_EQ(kNativeErrorRequestFailed.toValue().dump(),
              R"({"code":"nativeErrorCode.000","message":"请求失败，请稍后再试"})");
    EXPECT_EQ(kNativeErrorFileTooLarge.toValue().dump(), R"({"code":"nativeErrorCode.012","message":"上传文件过大"})");
    EXPECT_EQ(kNativeErrorTokenExpired.toValue().dump(), R"({"code":"nativeErrorCode.013","message":"token expired"})");
    EXPECT_EQ(kNativeErrorUploadFailed.toValue().dump(), R"({"code":"nativeErrorCode.014","message":"上传失败"})");
}

long long utcMillis() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

TEST(Timestamp, CountsLocalWallClockAsUtcMilliseconds) {
    const char* old = std::getenv("TZ");
    const std::optional<std::string> previous = old ? std::optional<std::string>(old) : std::nullopt;
    for (auto [tz, offsetMs] : {std::pair{"UTC-8", 28'800'000LL}, std::pair{"UTC0", 0LL}, std::pair{"UTC+5", -18'000'000LL}}) {
        setenv("TZ", tz, 1);
        tzset();
        long long before = utcMillis();
        std::string stamp = QuorvaneApiManager::getTimestamp();
        long long after = utcMillis();
        ASSERT_FALSE(stamp.empty());
        EXPECT_EQ(stamp.find_first_not_of("0123456789"), std::string::npos) << stamp;
        long long value = std::stoll(stamp);
        EXPECT_GE(value - offsetMs, before - 1) << tz;
        EXPECT_LE(value - offsetMs, after + 1) << tz;
    }
    if (previous) setenv("TZ", previous->c_str(), 1);
    else unsetenv("TZ");
    tzset();
}

Value systemInfo() {
    Value result;
    int successes = 0, failures = 0;
    QuorvaneApiManager::getSystemInfoWithSuccessCallback([&](const Value& v) { result = v; ++successes; },
                                                         [&](const Value& v) { result = v; ++failures; });
    EXPECT_EQ(successes + failures, 1);
    return result;
}

TEST_F(Facade, SystemInfoHasNineKeysInOrderWithBarTakenOffAndFailsWithoutADevice) {
    device.device->setFacts({"iOS", "16.4", "iPhone", std::nullopt, {375, 812}});
    Value info = systemInfo();
    // In this order; the window is the screen less the status bar.
    const std::pair<std::string, Value> expected[] = {
        {"brand", "apple"}, {"platform", "iOS"}, {"system", "16.4"}, {"model", "iPhone"}, {"deviceId", ""},
        {"windowWidth", 375.0}, {"windowHeight", 812.0 - 44}, {"screenWidth", 375.0}, {"screenHeight", 812.0}};
    ASSERT_EQ(info.size(), 9u);
    auto item = info.items().begin();
    for (const auto& [key, value] : expected) {
        EXPECT_EQ(item.key(), key);
        EXPECT_EQ(item.value(), value) << key;
        ++item;
    }
    EXPECT_TRUE(info["windowHeight"].is_number_float());

    device.device->setFacts({"iOS", "16.4", "iPhone", "6E1B-VENDOR", {320.5, 568}});
    info = systemInfo();
    EXPECT_EQ(info["deviceId"], "6E1B-VENDOR");
    EXPECT_EQ(info["windowHeight"].get<double>(), 524.0);
    EXPECT_FLOAT_EQ(info["screenWidth"].get<float>(), 320.5f);

    // Without a device: the failure callback with its word.
    auto services = platform::Platform::current();
    services.device = nullptr;
    platform::Platform::setCurrent(services);
    EXPECT_EQ(systemInfo(), Value("获取手机系统信息失败"));
    QuorvaneApiManager::getSystemInfoWithSuccessCallback(nullptr, nullptr);  // absent callbacks: no crash
}

TEST(TempFiles, PathsJoinUnderTheTemporaryDirectoryAndMediaFilesAreSavedAndDeleted) {
    foundation::ScopedTempDir dir;
    const std::string root = dir.path();
    foundation::setTemporaryDirectory(root + "/");
    std::string path = QuorvaneApiManager::getPathFromSandboxTempWithMiddleDir("media", "clip", "mp4");
    EXPECT_EQ(path, root + "/media/clip.mp4");
    EXPECT_TRUE(fs::is_directory(root + "/media"));
    EXPECT_EQ(QuorvaneApiManager::getPathFromSandboxTempWithMiddleDir("media", "clip", "mp4"), path);
    EXPECT_EQ(QuorvaneApiManager::getPathFromSandboxTempWithMiddleDir("", "x", "jpg"), root + "/x.jpg");
    EXPECT_EQ(QuorvaneApiManager::getPathFromSandboxTempWithMiddleDir("", "x", ""), root + "/x.");

    std::string unique = QuorvaneApiManager::getPathFromSandboxTempWithMiddleDir("media", "", "mp3");
    EXPECT_EQ(fs::path(unique).parent_path(), fs::path(root + "/media"));
    EXPECT_EQ(fs::path(unique).extension(), ".mp3");

    std::string joined = QuorvaneApiManager::getfilePathFromSandboxTmpWithMiddleDir("deep/dir", "a.jpg");
    EXPECT_EQ(joined, root + "/deep/dir/a.jpg");
    EXPECT_FALSE(fs::exists(root + "/deep"));

    // Saved media files, then deleted one by one and all at once.
    std::string first = QuorvaneApiManager::saveFile("abc", "media", "jpg");
    std::string second = QuorvaneApiManager::saveFile("", "media", "jpg");
    EXPECT_NE(first, second);
    EXPECT_EQ(foundation::readFile(first), "abc");
    EXPECT_EQ(foundation::readFile(second), "");
    std::string outside = QuorvaneApiManager::saveFile("keep", "", "txt");

    QuorvaneApiManager::deleteSandboxFile("file://" + first);
    EXPECT_FALSE(fs::exists(first));
    QuorvaneApiManager::deleteSandboxFile(first);  // already gone: ignored
    QuorvaneApiManager::deleteSandboxFile("");
    QuorvaneApiManager::deleteAllMediaFiles();
    EXPECT_FALSE(fs::exists(root + "/media"));
    EXPECT_TRUE(fs::exists(outside));
    QuorvaneApiManager::deleteAllMediaFiles();  // nothing left: ignored

    // Saving into an unwritable place still returns the path.
    fs::create_directories(root + "/blocked");
    std::ofstream(root + "/blocked/media") << "a file where the directory should be";
    foundation::setTemporaryDirectory(root + "/blocked/");
    std::string blocked = QuorvaneApiManager::saveFile("abc", "media", "jpg");
    EXPECT_EQ(fs::path(blocked).parent_path(), fs::path(root + "/blocked/media"));
    EXPECT_FALSE(fs::exists(blocked));
}

using testing::LoopbackServer;

struct Outcome {
    std::atomic<int> calls{0};
    Value data;
    std::string status;
    std::optional<Error> error;

    ReponseData callback() {
        return [this](const Value& d, const std::string& s, const std::optional<Error>& e) {
            data = d;
            status = s;
            error = e;
            ++calls;
        };
    }
    // Waits for the callback, then checks that no second one follows.
    void waitExactlyOnce() {
        ASSERT_TRUE(testing::waitFor([this] { return calls > 0; }));
        testing::settle();
        EXPECT_EQ(calls, 1);
    }
};

enum class Helper { Get, RawPost, Multipart };

void call(Helper helper, const std::string& url, Outcome& out) {
    switch (helper) {
    case Helper::Get: ApiOSSUploadTool::getRequestWithUrl(url, Value::object(), out.callback()); break;
    case Helper::RawPost:
        ApiOSSUploadTool::postRequestWithUrl(url, Value::object(), "{}", true, Value::object(), out.callback());
        break;
    case Helper::Multipart:
        QuorvaneApiManager::postRequestWithUrl(url, Value::object(), "bytes", "file", "a.jpg", MediaTypeImage,
                                               Value::object(), out.callback(), nullptr);
        break;
    }
}

constexpr Helper kAllHelpers[] = {Helper::Get, Helper::RawPost, Helper::Multipart};

TEST(RequestHelpers, EmptyHeaderValuesAreSkippedByRawPostOnly) {
    const Value header{{"Authorization", ""}, {"X-Token", "t1"}};
    testing::RawCaptureServer rawServer, multipartServer;
    Outcome raw, multipart;
    ApiOSSUploadTool::postRequestWithUrl(rawServer.url(), Value::object(), "{}", false, header, raw.callback());
    QuorvaneApiManager::postRequestWithUrl(multipartServer.url(), Value::object(), "b", "file", "f.jpg", MediaTypeImage,
                                           header, multipart.callback(), nullptr);
    raw.waitExactlyOnce();
    multipart.waitExactlyOnce();
    EXPECT_EQ(raw.status, "success");
    EXPECT_EQ(multipart.status, "success");
    EXPECT_NE(rawServer.head().find("\r\nX-Token: t1\r\n"), std::string::npos) << rawServer.head();
    EXPECT_EQ(rawServer.head().find("Authorization"), std::string::npos) << rawServer.head();
    EXPECT_NE(multipartServer.head().find("\r\nAuthorization:"), std::string::npos) << multipartServer.head();
    EXPECT_NE(multipartServer.head().find("\r\nX-Token: t1\r\n"), std::string::npos);
}

TEST(RequestHelpers, RawPostSendsTheCallersBytesAndGetPutsParametersInTheQuery) {
    LoopbackServer server;
    Outcome posted, got;
    ApiOSSUploadTool::postRequestWithUrl(server.url("/ticket?access_token=a"), Value::object(),
                                         R"({"file_name":"v.mp4"})", true, Value{{"X-Token", "t1"}}, posted.callback());
    posted.waitExactlyOnce();
    server.answer(200, R"({"bucket":"b"})");
    ApiOSSUploadTool::getRequestWithUrl(server.url("/enterprise-api/oss/config"),
                                        Value{{"access_token", "tok en"}, {"n", 5}}, got.callback());
    got.waitExactlyOnce();
    EXPECT_EQ(posted.status, "success");
    EXPECT_EQ(got.status, "success");
    EXPECT_EQ(got.data, (Value{{"bucket", "b"}}));
    const auto post = server.received().at(0), get = server.received().at(1);
    EXPECT_EQ(post.method, "POST");
    EXPECT_EQ(post.body, R"({"file_name":"v.mp4"})");
    EXPECT_EQ(post.params.find("access_token")->second, "a");
    EXPECT_EQ(post.headers.find("X-Token")->second, "t1");
    EXPECT_EQ(get.path, "/enterprise-api/oss/config");
    EXPECT_EQ(get.params.find("access_token")->second, "tok en");
    EXPECT_EQ(get.params.find("n")->second, "5");
    for (const auto& request : {post, get}) {
        EXPECT_EQ(request.headers.find("lang")->second, "zh_cn");
        EXPECT_EQ(request.headers.find("Content-Type")->second, "application/json");
    }
}

TEST(MultipartPost, FilePartTypeFollowsMediaTypeWithFieldsAndHeaders) {
    LoopbackServer server;
    const std::pair<int, const char*> cases[] = {{0, "image/jpg"}, {1, "video/mp4"}, {2, "audio/mp3"}, {3, nullptr}};
    for (auto [mediaType, contentType] : cases) {
        Outcome out;
        std::atomic<int> progressCalls{0};
        std::atomic<std::int64_t> lastCompleted{0}, lastTotal{0};
        QuorvaneApiManager::postRequestWithUrl(
            server.url("/upload"), Value{{"userId", "u1"}}, "FILEBYTES", "file", "f.bin", mediaType,
            Value{{"X-App", "demo"}}, out.callback(), [&](const Progress& p) {
                lastCompleted = p.completedUnitCount;
                lastTotal = p.totalUnitCount;
                ++progressCalls;
            });
        out.waitExactlyOnce();
        EXPECT_EQ(out.status, "success") << mediaType;
        auto got = server.received().back();
        EXPECT_EQ(got.headers.find("lang")->second, "zh_cn");
        EXPECT_EQ(got.headers.find("X-App")->second, "demo");
        EXPECT_EQ(got.headers.find("Content-Type")->second.rfind("multipart/form-data; boundary=", 0), 0u);
        ASSERT_EQ(got.parts.count("userId"), 1u);
        EXPECT_EQ(got.parts.find("userId")->second.content, "u1");
        if (!contentType) {
            EXPECT_EQ(got.parts.count("file"), 0u);
            continue;
        }
        ASSERT_EQ(got.parts.count("file"), 1u) << mediaType;
        const auto& file = got.parts.find("file")->second;
        EXPECT_EQ(file.content, "FILEBYTES");
        EXPECT_EQ(file.filename, "f.bin");
        EXPECT_EQ(file.content_type, contentType);
        EXPECT_GT(progressCalls, 0);
        EXPECT_EQ(lastCompleted, lastTotal);
    }
}

// The raw POST alone passes on the body of an error status; a bare JSON fragment parses, anything
// else that is not JSON is a success without data.
TEST(RequestHelpers, AnswersFollowStatusAndBody) {
    LoopbackServer server;
    const Value errorBody{{"code", "E42"}, {"msg", "broken"}};
    const struct {
        int status;
        std::string body;
        Value raw, others;
    } cases[] = {{500, R"({"code":"E42","msg":"broken"})", errorBody, Value()},
                 {200, "123", Value(123), Value(123)},
                 {200, "<html>not json</html>", Value(), Value()}};
    for (const auto& c : cases)
        for (Helper helper : kAllHelpers) {
            SCOPED_TRACE(c.body);
            server.answer(c.status, c.body);
            Outcome out;
            call(helper, server.url("/answer"), out);
            out.waitExactlyOnce();
            EXPECT_EQ(out.status, c.status == 200 ? "success" : "failure");
            EXPECT_EQ(out.data, helper == Helper::RawPost ? c.raw : c.others);
            ASSERT_EQ(out.error.has_value(), c.status != 200);
            if (out.error) {
                EXPECT_EQ(out.error->userInfo.value("statusCode", 0), c.status);
            }
        }
    for (const auto& got : server.received()) EXPECT_EQ(got.headers.find("lang")->second, "zh_cn");

    // Absent callbacks are harmless; the requests still go.
    const auto before = server.received().size();
    ApiOSSUploadTool::getRequestWithUrl(server.url(), nullptr, nullptr);
    ApiOSSUploadTool::postRequestWithUrl(server.url(), nullptr, "", false, nullptr, nullptr);
    QuorvaneApiManager::postRequestWithUrl(server.url(), nullptr, "", "", "", 0, nullptr, nullptr, nullptr);
    EXPECT_TRUE(testing::waitFor([&] { return server.received().size() == before + 3; }));
    testing::settle();
}

// Nothing listening, no URL at all, or a server that never answers (the transport's time-out, 28).
TEST(RequestHelpers, UnreachableBadOrSilentHostFailsExactlyOnce) {
    test::SilentServer silent;
    HttpSessionManager::setDefaultTimeoutInterval(1);
    const std::string stalled = silent.endpoint() + "/stalled";
    for (const auto& url : {testing::unreachableUrl(), std::string(), std::string("not a url"), stalled})
        for (Helper helper : kAllHelpers) {
            Outcome out;
            call(helper, url, out);
            out.waitExactlyOnce();
            EXPECT_EQ(out.status, "failure") << url;
            EXPECT_TRUE(out.data.is_null());
            ASSERT_TRUE(out.error.has_value());
            if (url == stalled) {
                EXPECT_EQ(out.error->code, 28);
            }
        }
    HttpSessionManager::setDefaultTimeoutInterval(0);
    EXPECT_EQ(HttpSessionManager::defaultTimeoutInterval(), HttpSessionManager::kDefaultTimeoutInterval);
}

}  // namespace
}  // namespace quorvane
