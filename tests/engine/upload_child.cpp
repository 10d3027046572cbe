// A separate process that uploads one file with the engine and exits: 0 after finish, 2 after a
// failure, 3 when the credentials expired, 4 on time-out. The crash test kills it mid-upload and
// runs it again on the same record directory and user-defaults file (QUORVANE_DEFAULTS_FILE).
//
// upload_child <endpoint> <bucket> <object> <file> <record dir> <key id> <key secret> <token> <expiry>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "VODUpload/src/VODUploadClient.h"
#include "foundation/dispatch.h"
#include "foundation/host_paths.h"

using namespace quorvane;

int main(int argc, char** argv) {
    if (argc != 10) {
        std::fprintf(stderr, "usage: upload_child endpoint bucket object file records keyId secret token expiry\n");
        return 64;
    }
    std::atomic<int> outcome{-1};
    auto listener = std::make_shared<VODUploadListener>();
    listener->finish = [&](const auto&, const VodUploadResult&) { outcome = 0; };
    listener->failure = [&](const auto&, const std::string& code, const std::string& message) {
        std::fprintf(stderr, "failure %s: %s\n", code.c_str(), message.c_str());
        outcome = 2;
    };
    listener->expire = [&] { outcome = 3; };

    // As a host does: the parent points the user-defaults file (the resume cache) at the test's own.
    foundation::useHostPaths(foundation::hostPathsFrom(std::getenv));
    auto client = VODUploadClient::create();
    client->setRecordDirectoryPath(argv[5]);
    if (!client->init(argv[6], argv[7], argv[8], argv[9], listener)) return 64;
    if (!client->addFile(argv[4], argv[1], argv[2], argv[3]) || !client->start()) return 64;
    bool ended = foundation::MainLoop::instance().runUntil([&] { return outcome >= 0; }, std::chrono::minutes(5));
    // Leave at once: the engine's worker threads may still be winding down, and everything that
    // must survive (records, user defaults) is already written.
    std::fflush(nullptr);
    std::_Exit(ended ? outcome.load() : 4);
}
