#pragma once
// The options every object-storage command shares (where the service is and whose keys to use), and
// the store they lead to: the named service, or the local cloud started in-process when nothing names
// one. Keys come from one place, first found first: the command line, a profile named by --profile or
// --credentials-file, the environment, then the profile of QUORVANE_PROFILE or [default]. The endpoint,
// region and bucket come from the command line, else from that same place, so a command never sends
// one place's keys to another's service.
#include <CLI/CLI.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "credentials.h"
#include "embedded_cloud.h"
#include "object_store.h"
#include "oss/oss_client.h"

namespace quorvane::app {

struct StoreOptions {
    std::string endpoint, region, keyId, secret, token, expire, profile, credentialsFile, caFile, storage;
    int signatureVersion = 4;
    bool json = false;
};

// Adds the connection and credential options, and --json.
void addStoreOptions(CLI::App& cmd, StoreOptions& o);

using Environment = std::function<const char*(const char*)>;

// Whether the options or the environment name a service (keys or an endpoint on the command line or in
// the environment, a profile by name, or a default profile with an endpoint); else the local cloud.
bool storeNamesService(const StoreOptions& o, const Environment& env);

// Where a command goes: the endpoint, region, bucket (the profile's when `bucket` is empty) and keys.
// nullopt with `problem` set when something is missing or does not hold together.
std::optional<StoreAccess> resolveStoreAccess(const StoreOptions& o, const std::string& bucket, const Environment& env,
                                              std::string& problem);

// The store one command works on, with its client; the local cloud runs as long as this lives.
class StoreSession {
public:
    ~StoreSession();
    // Usage problems leave `problem` set and return false with `usage` true; setup failures (the
    // local cloud cannot start) with `usage` false.
    bool open(const StoreOptions& o, const std::string& bucket, std::string& problem, bool& usage);
    oss::OSSClient& client() { return *client_; }
    const StoreAccess& access() const { return access_; }
    bool local() const { return cloud_ != nullptr; }
    // Text that may be shown: secrets replaced.
    std::string redacted(const std::string& text) const;

private:
    StoreAccess access_;
    std::unique_ptr<EmbeddedCloud> cloud_;
    std::unique_ptr<oss::OSSClient> client_;
};

}  // namespace quorvane::app
