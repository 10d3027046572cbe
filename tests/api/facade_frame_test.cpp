// The façade's stateless services: failure values, timestamp, system facts, temporary files.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "api/QuorvaneApiManager.h"
#include "foundation/temp_files.h"
#include "platform/headless/headless_platform.h"

namespace quorvane {
namespace {

namespace fs = std::filesystem;

TEST(FacadeErrors, NativeCodesAreTwoKeyDictionariesWithTheirTexts) {
    // As the host reads them: written out, code first.
    EXPECT_EQ(kNativeErrorRequestFailed.toValue().dump(),
              R"({"code":"nativeErrorCode.000","message":"请求失败，请稍后再试"})");
    EXPECT_EQ(kNativeErrorFileTooLarge.toValue().dump(), R"({"code":"nativeErrorCode.012","message":"上传文件过大"})");
    EXPECT_EQ(kNativeErrorTokenExpired.toValue().dump(), R"({"code":"nativeErrorCode.013","message":"token expired"})");
    EXPECT_EQ(kNativeErrorUploadFailed.toValue().dump(), R"({"code":"nativeErrorCode.014","message":"上传失败"})");
}

class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char* tz) {
        if (const char* old = std::getenv("TZ")) previous_ = old;
        setenv("TZ", tz, 1);
        tzset();
    }
    ~ScopedTimeZone() {
        if (previous_) setenv("TZ", previous_->c_str(), 1);
        else unsetenv("TZ");
        tzset();
    }
private:
    std::optional<std::string> previous_;
};

long long utcMillis() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

TEST(Timestamp, CountsLocalWallClockAsUtcMilliseconds) {
    for (auto [tz, offsetMs] : {std::pair{"UTC-8", 28'800'000LL}, std::pair{"UTC0", 0LL}, std::pair{"UTC+5", -18'000'000LL}}) {
        ScopedTimeZone zone(tz);
        long long before = utcMillis();
        std::string stamp = QuorvaneApiManager::getTimestamp();
        long long after = utcMillis();
        ASSERT_FALSE(stamp.empty());
        EXPECT_EQ(stamp.find_first_not_of("0123456789"), std::string::npos) << stamp;
        long long value = std::stoll(stamp);
        EXPECT_GE(value - offsetMs, before - 1) << tz;
        EXPECT_LE(value - offsetMs, after + 1) << tz;
    }
}

class FacadeDevice : public ::testing::Test {
protected:
    platform::headless::HeadlessDevice device = platform::headless::installHeadlessDevice();
};

Value systemInfo() {
    Value result;
    int successes = 0, failures = 0;
    QuorvaneApiManager::getSystemInfoWithSuccessCallback([&](const Value& v) { result = v; ++successes; },
                                                         [&](const Value& v) { result = v; ++failures; });
    EXPECT_EQ(successes + failures, 1);
    return result;
}

TEST_F(FacadeDevice, SystemInfoHasNineKeysInOrderWithBarTakenOff) {
    device.device->setFacts({"iOS", "16.4", "iPhone", std::nullopt, {375, 812}});
    Value info = systemInfo();
    std::vector<std::string> keys;
    for (const auto& item : info.items()) keys.push_back(item.key());
    EXPECT_EQ(keys, (std::vector<std::string>{"brand", "platform", "system", "model", "deviceId", "windowWidth",
                                              "windowHeight", "screenWidth", "screenHeight"}));
    EXPECT_EQ(info["brand"], "apple");
    EXPECT_EQ(info["platform"], "iOS");
    EXPECT_EQ(info["system"], "16.4");
    EXPECT_EQ(info["model"], "iPhone");
    EXPECT_EQ(info["deviceId"], "");
    EXPECT_TRUE(info["windowHeight"].is_number_float());
    EXPECT_EQ(info["windowWidth"].get<double>(), 375.0);
    EXPECT_EQ(info["screenHeight"].get<double>(), 812.0);
    EXPECT_EQ(info["windowHeight"].get<double>(), 812.0 - 44);

    device.device->setFacts({"iOS", "16.4", "iPhone", "6E1B-VENDOR", {320.5, 568}});
    info = systemInfo();
    EXPECT_EQ(info["deviceId"], "6E1B-VENDOR");
    EXPECT_EQ(info["windowHeight"].get<double>(), 524.0);
    EXPECT_FLOAT_EQ(info["screenWidth"].get<float>(), 320.5f);
}

TEST_F(FacadeDevice, SystemInfoWithoutDeviceFailsWithItsWord) {
    auto services = platform::Platform::current();
    services.device = nullptr;
    platform::Platform::setCurrent(services);
    EXPECT_EQ(systemInfo(), Value("获取手机系统信息失败"));
    QuorvaneApiManager::getSystemInfoWithSuccessCallback(nullptr, nullptr);  // absent callbacks: no crash
}

class TempFiles : public ::testing::Test {
protected:
    void SetUp() override { foundation::setTemporaryDirectory(dir.path() + "/"); }
    foundation::ScopedTempDir dir;
    std::string root() const { return dir.path(); }
};

TEST_F(TempFiles, PathsJoinUnderTheTemporaryDirectory) {
    std::string path = QuorvaneApiManager::getPathFromSandboxTempWithMiddleDir("media", "clip", "mp4");
    EXPECT_EQ(path, root() + "/media/clip.mp4");
    EXPECT_TRUE(fs::is_directory(root() + "/media"));
    EXPECT_EQ(QuorvaneApiManager::getPathFromSandboxTempWithMiddleDir("media", "clip", "mp4"), path);
    EXPECT_EQ(QuorvaneApiManager::getPathFromSandboxTempWithMiddleDir("", "x", "jpg"), root() + "/x.jpg");
    EXPECT_EQ(QuorvaneApiManager::getPathFromSandboxTempWithMiddleDir("", "x", ""), root() + "/x.");

    std::string unique = QuorvaneApiManager::getPathFromSandboxTempWithMiddleDir("media", "", "mp3");
    EXPECT_EQ(fs::path(unique).parent_path(), fs::path(root() + "/media"));
    EXPECT_EQ(fs::path(unique).extension(), ".mp3");

    std::string joined = QuorvaneApiManager::getfilePathFromSandboxTmpWithMiddleDir("deep/dir", "a.jpg");
    EXPECT_EQ(joined, root() + "/deep/dir/a.jpg");
    EXPECT_FALSE(fs::exists(root() + "/deep"));
}

TEST_F(TempFiles, SaveThenDeleteMediaFiles) {
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
    EXPECT_FALSE(fs::exists(root() + "/media"));
    EXPECT_TRUE(fs::exists(outside));
    QuorvaneApiManager::deleteAllMediaFiles();  // nothing left: ignored
}

TEST_F(TempFiles, SaveIntoAnUnwritablePlaceStillReturnsThePath) {
    fs::create_directories(root() + "/blocked");
    std::ofstream(root() + "/blocked/media") << "a file where the directory should be";
    foundation::setTemporaryDirectory(root() + "/blocked/");
    std::string path = QuorvaneApiManager::saveFile("abc", "media", "jpg");
    EXPECT_EQ(fs::path(path).parent_path(), fs::path(root() + "/blocked/media"));
    EXPECT_FALSE(fs::exists(path));
}

}  // namespace
}  // namespace quorvane
