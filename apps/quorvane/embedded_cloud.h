#pragma once
// The local cloud `quorvane upload` starts in-process when no service is named: the emulator on a
// loopback port with its storage under the user's cache, the video service and the log service
// pointed at it, and STS credentials issued by it.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "emulator/cloud_emulator.h"

namespace quorvane::app {

class EmbeddedCloud {
public:
    explicit EmbeddedCloud(std::string storageDir);
    ~EmbeddedCloud();

    // Starts serving on the port the last run used when it is free (kept in the storage directory),
    // else on any free one.
    bool start(std::string& error);
    void stop();

    std::string endpoint() const;
    std::string bucket() const;
    std::string region() const;
    emulator::StsCredentials issueSts();

    struct Check {
        bool found = false;
        bool ok = false;  // stored size and CRC-64 equal the local file's
        std::uint64_t size = 0;
        std::uint64_t crc64 = 0;
    };
    // Compares the stored object with the local file.
    Check verify(const std::string& bucket, const std::string& key, const std::string& localPath) const;

private:
    std::string storageDir_;
    std::unique_ptr<emulator::CloudEmulator> cloud_;
};

}  // namespace quorvane::app
