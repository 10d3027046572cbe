// Uploads one file into object storage through the upload engine, as a program of the SDK's users would:
//   OSS_ACCESS_KEY_ID=... OSS_ACCESS_KEY_SECRET=... upload_example FILE ENDPOINT BUCKET OBJECT
// Exit status 0 when the file is stored, 1 when the engine gave up, 2 on bad usage.
#include <VODUpload/src/VODUploadClient.h>
#include <foundation/dispatch.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <utility>

using namespace quorvane;

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: OSS_ACCESS_KEY_ID=.. OSS_ACCESS_KEY_SECRET=.. %s FILE ENDPOINT BUCKET OBJECT\n",
                     argv[0]);
        return 2;
    }
    const char* keyId = std::getenv("OSS_ACCESS_KEY_ID");
    const char* secret = std::getenv("OSS_ACCESS_KEY_SECRET");
    for (auto [name, value] : {std::pair{"OSS_ACCESS_KEY_ID", keyId}, std::pair{"OSS_ACCESS_KEY_SECRET", secret}})
        if (!value || !*value) std::fprintf(stderr, "%s is not set: export the access key pair first\n", name);
    if (!keyId || !*keyId || !secret || !*secret) return 2;
    auto client = VODUploadClient::create();
    auto listener = std::make_shared<VODUploadListener>();
    std::atomic<bool> done = false, stored = false;  // set on the client's queue, read here
    listener->progress = [](auto&, long sent, long total) { std::printf("progress %ld/%ld\n", sent, total); };
    listener->finish = [&](auto&, const VodUploadResult&) { stored = true; done = true; };
    // Network trouble: the engine waits and tries again, up to maxRetryCount times.
    listener->retry = [] { std::printf("retrying\n"); };
    listener->retryResume = [] { std::printf("resumed\n"); };
    listener->failure = [&](auto&, const std::string& code, const std::string& message) {
        std::printf("failed: %s %s\n", code.c_str(), message.c_str());
        done = true;
    };
    client->setMaxRetryCount(5);  // without it, network trouble is retried without end
    client->init(keyId, secret, listener);
    client->addFile(argv[1], argv[2], argv[3], argv[4]);
    client->start();
    // Callbacks arrive on the client's own queue; the main loop only has to run until one says done.
    foundation::MainLoop::instance().runUntil([&] { return done.load(); }, std::chrono::hours(24));
    std::printf(stored ? "stored\n" : "not stored\n");
    return stored ? 0 : 1;
}
