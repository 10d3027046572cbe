#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <thread>

#include "VODUpload/src/AVCVEventManager.h"
#include "VODUpload/src/VODObjectCache.h"
#include "engine_test_support.h"
#include "foundation/crypto.h"
#include "foundation/log.h"
#include "oss/oss_log.h"

using namespace quorvane;

namespace {

std::shared_ptr<VODUploadClient> pausedClient() {
    auto client = VODUploadClient::create();
    VODUploadClientTestAccess::setState(*client, VODClientState::Paused);
    return client;
}

std::string authText(const std::string& utc) {
    Value v = {{"AccessKeyId", "k2"}, {"AccessKeySecret", "s2"}, {"SecurityToken", "t2"},
               {"Expiration", "exp"}, {"ExpireUTCTime", utc}, {"Region", "ap-southeast-1"}};
    return foundation::base64Encode(v.dump());
}

}  // namespace

// The records go where the host says; without a word from it, to the account's caches directory,
// whatever the environment says (the library reads none).
TEST(VODUploadEngine, RecordDirectoryComesFromTheConfiguration) {
    test::TempDir dir;
    VODServiceConfig config;
    config.recordDirectory = dir.file("records");
    EXPECT_EQ(VODUploadClient::create(config)->recordDirectoryPath(), dir.file("records"));

    const char* before = std::getenv("XDG_CACHE_HOME");
    const std::optional<std::string> saved = before ? std::optional<std::string>(before) : std::nullopt;
    ::setenv("XDG_CACHE_HOME", dir.file("xdg").c_str(), 1);
    const auto fallback = VODUploadClient::create(VODServiceConfig{})->recordDirectoryPath();
    if (saved)
        ::setenv("XDG_CACHE_HOME", saved->c_str(), 1);
    else
        ::unsetenv("XDG_CACHE_HOME");
    EXPECT_EQ(fallback.find(dir.file("xdg")), std::string::npos) << fallback;
    EXPECT_FALSE(fallback.empty());
}

TEST(VODUploadEngine, NewClientHasDocumentedDefaults) {
    auto client = VODUploadClient::create();
    EXPECT_EQ(client->state(), VODClientState::Idle);
    EXPECT_TRUE(client->listFiles().empty());
    EXPECT_EQ(client->uploadPartSize(), 1048576);
    EXPECT_EQ(client->region(), "cn-shanghai");
    EXPECT_EQ(client->timeoutIntervalForRequest(), 30.0);
    EXPECT_EQ(engineOf(*client).storageConfiguration().timeoutIntervalForRequest, 30.0);
    EXPECT_EQ(engineOf(*client).storageConfiguration().maxRetryCount, 2u);
    EXPECT_EQ(client->maxRetryCount(), 2147483647);
    EXPECT_TRUE(client->recordUploadProgress());
    EXPECT_TRUE(client->reportEnabled());
    EXPECT_TRUE(client->transcode());
    EXPECT_EQ(client->retryNotify(), 0);
    EXPECT_FALSE(client->recordDirectoryPath().empty());
    EXPECT_TRUE(engineOf(*client).ossConfig());
    EXPECT_FALSE(engineOf(*client).openApiConfig());

    client->setTimeoutIntervalForRequest(12.5);
    client->setMaxRetryCount(3);
    EXPECT_EQ(engineOf(*client).storageConfiguration().timeoutIntervalForRequest, 12.5);
    for (double seconds : {0.0, -5.0, std::nan("")}) {  // no time-out is no choice: the default
        client->setTimeoutIntervalForRequest(seconds);
        EXPECT_EQ(client->timeoutIntervalForRequest(), 30.0) << seconds;
        EXPECT_EQ(engineOf(*client).storageConfiguration().timeoutIntervalForRequest, 30.0) << seconds;
    }
    EXPECT_EQ(engineOf(*client).storageConfiguration().maxRetryCount, 2u);  // the engine's own retries stay apart

    ASSERT_TRUE(engineOf(*client).eventManager());
    EXPECT_EQ(engineOf(*client).eventManager()->logstore(), "upload");
    // Two switches that reach other objects: the telemetry and the shared resume cache.
    client->setReportEnabled(false);
    EXPECT_FALSE(engineOf(*client).eventManager()->enabled());
    client->setRecordUploadProgress(false);
    EXPECT_FALSE(VODObjectCache::sharedCache().enabled());
    client->setRecordUploadProgress(true);
}

TEST(VODUploadEngine, InitNeedsEveryCredentialTextAndTheProviderFollowsTheRecordInUse) {
    auto client = VODUploadClient::create();
    auto listener = std::make_shared<VODUploadListener>();
    EXPECT_FALSE(client->init("id", "", listener));
    EXPECT_FALSE(engineOf(*client).listener());
    EXPECT_FALSE(client->setKeyId("id", "secret", "token", "", listener));
    EXPECT_FALSE(engineOf(*client).ossConfig()->accessKeyId);

    ASSERT_TRUE(client->setKeyId("id", "secret", "token", "2030-01-01T00:00:00Z", listener));
    EXPECT_EQ(engineOf(*client).listener(), listener);
    EXPECT_EQ(engineOf(*client).ossConfig()->secretToken, "token");
    ASSERT_TRUE(client->init("id2", "secret2", listener));
    EXPECT_EQ(engineOf(*client).ossConfig()->accessKeyId, "id2");
    EXPECT_FALSE(engineOf(*client).ossConfig()->secretToken);  // a plain key pair drops the token and expiry
    EXPECT_FALSE(engineOf(*client).ossConfig()->expireTime);

    // The credential provider follows the record in use.
    EXPECT_EQ(engineOf(*VODUploadClient::create()).getCredentialProvider(), nullptr);  // no key pair yet
    ASSERT_TRUE(client->init("plain-id", "plain-secret", nullptr));
    auto plain = std::dynamic_pointer_cast<oss::OSSPlainTextAKSKPairCredentialProvider>(engineOf(*client).getCredentialProvider());
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->accessKey(), "plain-id");

    auto openApi = std::make_shared<OSSConfig>();
    openApi->accessKeyId = "sts-id";
    openApi->accessKeySecret = "sts-secret";
    openApi->secretToken = "tok";
    openApi->expireTime = "2030-01-01T00:00:00Z";
    VODUploadClientTestAccess::setOpenApiConfig(*client, openApi);
    auto federation = std::dynamic_pointer_cast<oss::OSSFederationCredentialProvider>(engineOf(*client).getCredentialProvider());
    ASSERT_TRUE(federation);
    Error error;
    auto token = federation->getToken(&error);
    ASSERT_TRUE(token);
    EXPECT_EQ(token->tAccessKey, "sts-id");
    EXPECT_EQ(token->expirationTimeInGMTFormat, "2030-01-01T00:00:00Z");

    // The getter reads the record when asked, and holds it weakly.
    openApi->secretToken = "tok-2";
    EXPECT_EQ(federation->getToken(&error)->tToken, "tok-2");
    VODUploadClientTestAccess::setOpenApiConfig(*client, nullptr);
    openApi.reset();
    EXPECT_EQ(federation->getToken(&error), nullptr);
}

// New credentials are stored on the caller's thread while upload workers fetch tokens: a fetch
// must see one whole set, never the id of one and the secret of another (ThreadSanitizer also
// reports the unguarded access itself).
TEST(VODUploadEngine, TokenFetchesSeeWholeCredentialSetsWhileTheyChange) {
    auto client = VODUploadClient::create();
    ASSERT_TRUE(client->init("id-0", "secret-0", "token-0", "exp-0", nullptr));
    auto provider = std::dynamic_pointer_cast<oss::OSSFederationCredentialProvider>(engineOf(*client).getCredentialProvider());
    ASSERT_TRUE(provider);
    std::atomic<bool> done{false};
    std::thread renewer([&] {
        for (int i = 1; i <= 3000; ++i) {
            const std::string n = std::to_string(i);
            client->init("id-" + n, "secret-" + n, "token-" + n, "exp-" + n, nullptr);
        }
        done = true;
    });
    std::string torn;  // the first fetch that mixed two sets
    for (int fetches = 0; torn.empty() && (!done || fetches == 0); ++fetches) {
        Error error;
        auto token = provider->getToken(&error);
        if (!token) {
            torn = "no token";
            break;
        }
        const std::string n = token->tAccessKey.substr(3);
        if (token->tSecretKey != "secret-" + n || token->tToken != "token-" + n ||
            token->expirationTimeInGMTFormat != "exp-" + n)
            torn = token->tAccessKey + " " + token->tSecretKey + " " + token->tToken;
    }
    renewer.join();
    EXPECT_EQ(torn, "");
    Error error;
    EXPECT_EQ(provider->getToken(&error)->tAccessKey, "id-3000");
}

TEST(VODUploadEngine, ResumeWithTokenOrAuthOnlyWhilePaused) {
    for (auto state : {VODClientState::Idle, VODClientState::Started, VODClientState::Stopped, VODClientState::Finished}) {
        auto client = VODUploadClient::create();
        VODUploadClientTestAccess::setState(*client, state);
        EXPECT_FALSE(client->resumeWithToken("k", "s", "t", "e")) << static_cast<int>(state);
        EXPECT_FALSE(client->resumeWithAuth(authText("utc"))) << static_cast<int>(state);
        EXPECT_EQ(client->state(), state);
        EXPECT_FALSE(engineOf(*client).ossConfig()->accessKeyId);
    }
    // Upload auth gives the credentials but not the region.
    oss::OSSLog::enableLog();
    foundation::LogCapture log;
    auto client = pausedClient();
    EXPECT_FALSE(client->resumeWithAuth(""));
    EXPECT_FALSE(client->resumeWithAuth("not base64"));
    EXPECT_FALSE(client->resumeWithAuth(foundation::base64Encode("not json")));
    std::string line = std::string(VODUploadEngine::kLogSource) + " [Debug]: upload auth format is error.";
    EXPECT_EQ(log.lines(), (std::vector<std::string>{line, line}));
    ASSERT_TRUE(client->resumeWithAuth(authText("")));
    EXPECT_EQ(engineOf(*client).ossConfig()->expireTime, "exp");
    EXPECT_EQ(client->region(), "cn-shanghai");
    EXPECT_TRUE(log.contains("[Debug]: resume upload with new token."));
    oss::OSSLog::disableLog();
    client = pausedClient();
    ASSERT_TRUE(client->resumeWithAuth(authText("2031-01-01T00:00:00Z")));
    EXPECT_EQ(engineOf(*client).ossConfig()->expireTime, "2031-01-01T00:00:00Z");

    client = pausedClient();
    EXPECT_FALSE(client->resumeWithToken("k", "s", "", "e"));
    EXPECT_EQ(client->state(), VODClientState::Paused);
    ASSERT_TRUE(client->resumeWithToken("k", "s", "t", "e"));
    EXPECT_NE(client->state(), VODClientState::Paused);  // started again; the queue then moves on
    EXPECT_EQ(engineOf(*client).ossConfig()->secretToken, "t");
}
