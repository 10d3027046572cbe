#pragma once
// Where `quorvane upload` finds its access keys, first found first: the command line, the
// environment, then a profile of the credentials file. Secrets never come back in a message.
#include <functional>
#include <optional>
#include <string>

namespace quorvane::app {

struct Credentials {
    std::string keyId, secret, token, expire;  // token and expire empty for a plain key pair
    std::string source;                        // "command line", "environment", "profile NAME (PATH)"
    std::string region;                        // the profile's "region", or OSS_REGION with environment keys
    // Where the keys belong: the profile's "endpoint" and "bucket", or OSS_ENDPOINT with environment keys.
    std::string endpoint, bucket;
};

struct CredentialInputs {
    Credentials flags;           // as given on the command line
    std::string profile;         // --profile; empty: QUORVANE_PROFILE, else "default"
    std::string credentialsFile; // --credentials-file; empty: the standard place
    // The environment (getenv in the program; a table in tests).
    std::function<const char*(const char*)> env;
};

// ${XDG_CONFIG_HOME:-~/.config}/quorvane/credentials
std::string defaultCredentialsFile(const std::function<const char*(const char*)>& env);

// The credentials to use, or nullopt with `problem` set (a usage error). A profile named on the
// command line or in QUORVANE_PROFILE must exist; the default profile is looked at only when its file does.
std::optional<Credentials> resolveCredentials(const CredentialInputs& inputs, std::string& problem);

// Whether a profile of the credentials file would be read without any option naming it: QUORVANE_PROFILE is
// set, or the default profile exists and names an endpoint (as `quorvane config` writes it).
bool defaultProfileNamesService(const CredentialInputs& inputs);

// ISO-8601 UTC ("2030-01-02T03:04:05Z", fractions allowed) as seconds since the epoch; nullopt otherwise.
std::optional<long long> parseIsoUtc(const std::string& text);

}  // namespace quorvane::app
