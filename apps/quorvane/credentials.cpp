#include "credentials.h"

#include "foundation/host_paths.h"
#include "profile_file.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <vector>

namespace quorvane::app {
namespace {
namespace fs = std::filesystem;

using Section = std::map<std::string, std::string>;

// Names of the profile file's keys, several spellings each (ossutil's and the AWS-style ones).
const std::vector<std::string> kKeyIdNames{"access_key_id", "accesskeyid", "access-key-id"};
const std::vector<std::string> kSecretNames{"access_key_secret", "accesskeysecret", "access-key-secret"};
const std::vector<std::string> kTokenNames{"security_token", "sts_token", "ststoken", "session_token", "sts-token"};
const std::vector<std::string> kExpireNames{"expiration", "expire"};

std::string firstOf(const Section& section, const std::vector<std::string>& names) {
    for (const auto& name : names)
        if (auto it = section.find(name); it != section.end() && !it->second.empty()) return it->second;
    return {};
}

std::string envOf(const CredentialInputs& in, std::initializer_list<const char*> names) {
    for (const char* name : names)
        if (const char* value = in.env ? in.env(name) : nullptr; value && *value) return value;
    return {};
}

// The profile's credentials; nullopt with `problem` set when it must exist and does not.
std::optional<Credentials> profileCredentials(const CredentialInputs& in, std::string& problem) {
    std::string name = in.profile.empty() ? envOf(in, {"QUORVANE_PROFILE"}) : in.profile;
    const bool named = !name.empty();
    if (!named) name = "default";
    const bool fileNamed = !in.credentialsFile.empty();
    std::string path = fileNamed ? in.credentialsFile : defaultCredentialsFile(in.env);
    std::error_code ec;
    if (!fs::exists(path, ec)) {
        if (named || fileNamed) problem = "credentials file " + path + " does not exist";
        return std::nullopt;
    }
    if (!fs::is_regular_file(path, ec)) {
        problem = "credentials file " + path + " is not a regular file";
        return std::nullopt;
    }
    std::string unreadable;
    auto parsed = readProfiles(path, unreadable);
    if (!parsed) {
        problem = "credentials file " + path + ": " + unreadable;
        return std::nullopt;
    }
    auto& sections = *parsed;
    auto it = sections.find(name);
    if (it == sections.end()) it = sections.find("profile " + name);  // the AWS config spelling
    if (it == sections.end()) {
        if (named) problem = "no profile '" + name + "' in " + path;
        return std::nullopt;
    }
    Credentials c{firstOf(it->second, kKeyIdNames), firstOf(it->second, kSecretNames),
                  firstOf(it->second, kTokenNames), firstOf(it->second, kExpireNames),
                  "profile " + name + " (" + path + ")", firstOf(it->second, {"region"}),
                  firstOf(it->second, {"endpoint"}), firstOf(it->second, {"bucket"})};
    if (c.keyId.empty() || c.secret.empty()) {
        problem = "profile '" + name + "' in " + path + " needs access_key_id and access_key_secret";
        return std::nullopt;
    }
    return c;
}

}  // namespace

std::string defaultCredentialsFile(const std::function<const char*(const char*)>& env) {
    fs::path base = foundation::xdgConfigHome(env);
    if (base.empty()) base = ".config";
    return (base / "quorvane" / "credentials").string();
}

std::optional<Credentials> resolveCredentials(const CredentialInputs& in, std::string& problem) {
    problem.clear();
    const auto& f = in.flags;
    if (!f.keyId.empty() || !f.secret.empty()) {
        if (f.keyId.empty() || f.secret.empty()) {
            problem = "--key-id and --secret go together (or take both from the environment or a profile)";
            return std::nullopt;
        }
        Credentials c = f;
        c.source = "command line";
        // The service of keys typed in: the command line's, else the environment's.
        c.endpoint = envOf(in, {"OSS_ENDPOINT"});
        if (c.region.empty()) c.region = envOf(in, {"OSS_REGION", "ALIBABA_CLOUD_REGION_ID"});
        return c;
    }
    if (!in.profile.empty() || !in.credentialsFile.empty()) {  // asked for by name: it wins over the environment
        auto c = profileCredentials(in, problem);
        if (c && !f.token.empty()) c->token = f.token, c->expire = f.expire;
        return c;
    }
    Credentials env{envOf(in, {"OSS_ACCESS_KEY_ID", "ALIBABA_CLOUD_ACCESS_KEY_ID"}),
                    envOf(in, {"OSS_ACCESS_KEY_SECRET", "ALIBABA_CLOUD_ACCESS_KEY_SECRET"}),
                    envOf(in, {"OSS_SESSION_TOKEN", "ALIBABA_CLOUD_SECURITY_TOKEN"}), {}, "environment",
                    envOf(in, {"OSS_REGION", "ALIBABA_CLOUD_REGION_ID"}), envOf(in, {"OSS_ENDPOINT"}), {}};
    if (!env.keyId.empty() || !env.secret.empty()) {
        if (env.keyId.empty() || env.secret.empty()) {
            problem = "the environment has only half a key pair (OSS_ACCESS_KEY_ID and OSS_ACCESS_KEY_SECRET)";
            return std::nullopt;
        }
        if (!f.token.empty()) env.token = f.token, env.expire = f.expire;
        return env;
    }
    auto c = profileCredentials(in, problem);
    if (!c && problem.empty())
        problem = "no credentials: give --key-id and --secret, set OSS_ACCESS_KEY_ID and OSS_ACCESS_KEY_SECRET, "
                  "or add a [default] profile to " + defaultCredentialsFile(in.env);
    if (c && !f.token.empty()) c->token = f.token, c->expire = f.expire;
    return c;
}

bool defaultProfileNamesService(const CredentialInputs& in) {
    if (!envOf(in, {"QUORVANE_PROFILE"}).empty()) return true;
    std::error_code ec;
    if (!fs::exists(defaultCredentialsFile(in.env), ec)) return false;
    CredentialInputs quiet = in;
    quiet.profile.clear();
    quiet.credentialsFile.clear();
    std::string problem;
    auto c = profileCredentials(quiet, problem);
    return c && !c->endpoint.empty();
}

std::optional<long long> parseIsoUtc(const std::string& text) {
    std::tm tm{};
    const char* end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &tm);
    if (!end) return std::nullopt;
    if (*end == '.') {
        ++end;
        if (!std::isdigit(static_cast<unsigned char>(*end))) return std::nullopt;
        while (std::isdigit(static_cast<unsigned char>(*end))) ++end;
    }
    if (std::strcmp(end, "Z") != 0) return std::nullopt;
    return static_cast<long long>(timegm(&tm));
}

}  // namespace quorvane::app
