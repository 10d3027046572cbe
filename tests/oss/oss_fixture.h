#pragma once
// An in-process emulator on a free port, a scratch directory and helpers to make files and clients.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <random>
#include <functional>
#include <string>
#include <thread>

#include "emulator/cloud_emulator.h"
#include "foundation/temp_files.h"
#include "oss/oss_client.h"

namespace oss_test {

using namespace quorvane;
using namespace quorvane::oss;
using std::chrono::milliseconds;

constexpr auto kWait = std::chrono::seconds(60);  // generous: a loaded machine is slow, never stuck

// Pseudo-random bytes, the same for the same seed.
inline std::string randomBytes(std::size_t size, unsigned seed) {
    std::mt19937 rng(seed);
    std::string bytes(size, '\0');
    for (auto& c : bytes) c = static_cast<char>(rng());
    return bytes;
}

class OssEmulatorTest : public ::testing::Test {
protected:
    explicit OssEmulatorTest(emulator::EmulatorOptions options = {}) : cloud(std::move(options)) {}
    void SetUp() override { ASSERT_TRUE(cloud.start()); }

    const std::string& bucket() const { return cloud.options().bucket; }

    std::shared_ptr<OSSCredentialProvider> rootKeys() const {
        return std::make_shared<OSSPlainTextAKSKPairCredentialProvider>(cloud.options().accessKeyId,
                                                                        cloud.options().accessKeySecret);
    }

    // Temporary credentials as a federation provider hands them out.
    static std::shared_ptr<OSSCredentialProvider> stsKeys(const emulator::StsCredentials& sts) {
        return std::make_shared<OSSFederationCredentialProvider>([sts] {
            auto t = std::make_shared<OSSFederationToken>();
            t->tAccessKey = sts.AccessKeyId;
            t->tSecretKey = sts.AccessKeySecret;
            t->tToken = sts.SecurityToken;
            t->expirationTimeInGMTFormat = sts.Expiration;
            return t;
        });
    }

    // A signer block that signs V1 with the root secret, as an app's own server would.
    std::shared_ptr<OSSCredentialProvider> signerBlock() const {
        auto secret = cloud.options().accessKeySecret, keyId = cloud.options().accessKeyId;
        return std::make_shared<OSSCustomSignerCredentialProvider>(
            [=](const std::string& content, Error*) -> std::optional<std::string> {
                return "OSS " + keyId + ":" + *OSSUtil::calBase64Sha1WithData(content, secret);
            });
    }

    std::unique_ptr<OSSClient> makeClient(OSSClientConfiguration conf = {},
                                          std::shared_ptr<OSSCredentialProvider> provider = nullptr) {
        conf.httpClient = http;
        return std::make_unique<OSSClient>(cloud.endpoint(), provider ? provider : rootKeys(), conf);
    }

    // A file of pseudo-random bytes; returns its path and fills `bytes`.
    std::string makeFile(const std::string& name, std::size_t size, std::string* bytes = nullptr, int seed = 1) {
        const auto data = randomBytes(size, static_cast<unsigned>(seed));
        auto path = dir.path() + "/" + name;
        std::ofstream(path, std::ios::binary) << data;
        if (bytes) *bytes = data;
        return path;
    }

    // Polls until `done` holds (true) or the generous wait passes (false).
    static bool eventually(const std::function<bool()>& done) {
        auto deadline = std::chrono::steady_clock::now() + kWait;
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::sleep_for(milliseconds(10));
        }
        return true;
    }
    // Waits until the emulator has taken `count` UploadPart requests off its fault script.
    bool partsArrived(std::size_t count) {
        return eventually([&] { return cloud.firedCount("UploadPart") >= count; });
    }

    std::string recordDir() const { return dir.path() + "/records"; }

    // A request of type R for `key` in the test bucket.
    template <class R>
    std::shared_ptr<R> on(const std::string& key) const {
        auto r = std::make_shared<R>();
        r->bucketName = bucket();
        r->objectKey = key;
        return r;
    }
    std::shared_ptr<OSSPutObjectRequest> putOf(const std::string& key, std::string bytes) const {
        auto r = on<OSSPutObjectRequest>(key);
        r->uploadingData = std::move(bytes);
        return r;
    }
    std::shared_ptr<OSSResumableUploadRequest> resumableOf(const std::string& path, const std::string& key,
                                                           std::int64_t partSize) const {
        auto r = on<OSSResumableUploadRequest>(key);
        r->uploadingFileURL = path;
        r->partSize = partSize;
        r->recordDirectoryPath = recordDir();
        return r;
    }
    std::string initiate(OSSClient& client, const std::string& key) {
        auto task = waited(client.multipartUploadInit(on<OSSInitMultipartUploadRequest>(key)));
        EXPECT_FALSE(task->error()) << task->error()->toString();
        return task->result() ? task->result()->uploadId : "";
    }

    template <class T>
    static std::shared_ptr<OSSTask<T>> waited(std::shared_ptr<OSSTask<T>> task) {
        EXPECT_TRUE(task->waitFor(kWait));
        return task;
    }
    // The error code a finished task ended with; 0 when it succeeded.
    template <class T>
    static long long codeOf(const std::shared_ptr<OSSTask<T>>& task) {
        return task->error() ? task->error()->code : 0;
    }

    emulator::CloudEmulator cloud;
    foundation::ScopedTempDir dir;
    // Our own connections, closed before the emulator stops (it waits for kept-alive ones).
    std::shared_ptr<foundation::HttpClient> http = std::make_shared<foundation::HttpClient>();
};

}  // namespace oss_test
