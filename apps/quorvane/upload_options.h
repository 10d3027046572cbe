#pragma once
// The options of `quorvane upload` as the user gave them, their CLI11 definitions, and the checks of
// the command line as a whole.
#include <CLI/CLI.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quorvane::app {

struct UploadOptions {
    std::vector<std::string> files;  // the last may be an oss://bucket/key destination
    std::string title;
    bool vod = false, oss = false, json = false, verbose = false, quiet = false, dryRun = false, recursive = false;
    std::string endpoint, bucket, keyId, secret, token, expire, storage, vodEndpoint;
    std::string profile, credentialsFile, caFile, logFile;
    std::string key, prefix, bwlimit;
    std::vector<std::string> include, exclude;
    // The services' region; empty: the profile's, else the one the endpoint names ("oss-cn-hangzhou...").
    std::string region;
    int signatureVersion = 4;  // of object-storage requests: 4 (OSS4-HMAC-SHA256) or 1
    std::int32_t partSize = 1048576;
    std::int32_t retries = 5;
    int idleTimeout = 30;  // seconds without a byte moving before a request is given up
    // Several files at once by default, as other upload tools do: a small file costs three round
    // trips (initiate, part, complete) that one connection can only wait through one after another.
    int jobs = 4;
    // Signature of video-service requests: 1 = the RPC form's HMAC-SHA1, 3 = ACS3-HMAC-SHA256.
    int vodSignature = 1;

    // The command line names a service (else the local cloud is started in-process).
    bool namesService() const;
    // A direct-upload target is named: endpoint, bucket or an oss:// destination.
    bool namesBucket() const;
};

// Adds the options to `cmd`, bound to `o`.
void addUploadOptions(CLI::App& cmd, UploadOptions& o);

// "256K", "1.5M", "1000000": bytes per second (K, M, G are 1024-based, an optional "B" or "iB" after
// them and "/s" at the end); nullopt when it is not a rate.
std::optional<std::uint64_t> parseRate(const std::string& text);

// The command line with the values of secret-bearing options shown as ***: what to run again.
std::string resumeCommand(const std::vector<std::string>& arguments);

}  // namespace quorvane::app
