#include "store_options.h"

#include <cstdlib>

#include "oss/oss_region.h"
#include "terminal_text.h"
#include "upload_records.h"

namespace quorvane::app {
namespace {

std::string envValue(const Environment& env, const char* name) {
    const char* value = env ? env(name) : nullptr;
    return value ? value : "";
}

CredentialInputs credentialInputs(const StoreOptions& o, const Environment& env) {
    return {{o.keyId, o.secret, o.token, o.expire, {}, o.region, {}, {}}, o.profile, o.credentialsFile, env};
}

}  // namespace

void addStoreOptions(CLI::App& cmd, StoreOptions& o) {
    cmd.add_option("--endpoint", o.endpoint, "Object-storage endpoint (default: the profile's, else OSS_ENDPOINT; "
                                             "none: the local cloud)");
    cmd.add_option("--region", o.region, "Region of the bucket, such as cn-hangzhou (default: the profile's, else "
                                         "the one an oss-<region>.aliyuncs.com endpoint names)");
    cmd.add_option("--key-id", o.keyId, "Access key id (else the profile named by --profile, else "
                                        "OSS_ACCESS_KEY_ID, else the default profile)");
    cmd.add_option("--secret", o.secret, "Access key secret; prefer the environment or a profile: options show in ps");
    cmd.add_option("--sts-token", o.token, "STS security token");
    cmd.add_option("--expire", o.expire, "Expiry of the STS credentials, ISO-8601 UTC (optional)");
    cmd.add_option("--profile", o.profile, "Profile of the credentials file: its keys, endpoint, region and bucket");
    cmd.add_option("--credentials-file", o.credentialsFile, "INI credentials file (default: ~/.config/quorvane/credentials)");
    cmd.add_option("--signature-version", o.signatureVersion, "Request signatures: 4 (OSS4-HMAC-SHA256) or 1")
        ->check(CLI::IsMember({1, 4}))
        ->capture_default_str();
    cmd.add_option("--ca-file", o.caFile, "Extra CA certificates (PEM) to trust for TLS")->check(CLI::ExistingFile);
    cmd.add_option("--storage", o.storage, "Storage directory of the local cloud");
    cmd.add_flag("--json", o.json, "One JSON object per event on standard output");
}

bool storeNamesService(const StoreOptions& o, const Environment& env) {
    if (!o.endpoint.empty() || !o.keyId.empty() || !o.secret.empty() || !o.token.empty() || !o.profile.empty() ||
        !o.credentialsFile.empty())
        return true;
    for (const char* name : {"OSS_ACCESS_KEY_ID", "ALIBABA_CLOUD_ACCESS_KEY_ID", "OSS_ENDPOINT"})
        if (!envValue(env, name).empty()) return true;
    return defaultProfileNamesService(credentialInputs(o, env));
}

std::optional<StoreAccess> resolveStoreAccess(const StoreOptions& o, const std::string& bucket, const Environment& env,
                                              std::string& problem) {
    auto credentials = resolveCredentials(credentialInputs(o, env), problem);
    if (!credentials) return std::nullopt;
    StoreAccess access;
    access.endpoint = !o.endpoint.empty() ? o.endpoint : credentials->endpoint;
    access.bucket = !bucket.empty() ? bucket : credentials->bucket;
    access.region = !o.region.empty() ? o.region : credentials->region;
    access.keyId = credentials->keyId;
    access.secret = credentials->secret;
    access.token = credentials->token;
    access.expire = credentials->expire;
    access.caFile = o.caFile;
    access.signatureVersion = o.signatureVersion;
    if (access.endpoint.empty()) {
        problem = "no endpoint: give --endpoint, or keep one in the profile (quorvane config) or in OSS_ENDPOINT "
                  "beside the keys of the " + credentials->source;
        return std::nullopt;
    }
    if (access.bucket.empty()) {
        problem = "no bucket: write oss://BUCKET/..., or keep one in the profile (quorvane config)";
        return std::nullopt;
    }
    if (!access.region.empty() && !oss::isValidRegion(access.region)) {
        problem = "bad region '" + access.region + "': a region id has only a-z, 0-9 and '-' (for instance cn-hangzhou)";
        return std::nullopt;
    }
    if (access.region.empty()) access.region = oss::regionFromEndpoint(access.endpoint).value_or("");
    if (access.region.empty() && access.signatureVersion == 4) {
        problem = "the endpoint '" + access.endpoint + "' names no region, which V4 signatures need: give --region "
                  "(for instance cn-hangzhou), or --signature-version 1 for a bucket that still takes V1";
        return std::nullopt;
    }
    return access;
}

StoreSession::~StoreSession() {
    client_.reset();
    if (cloud_) cloud_->stop();
}

bool StoreSession::open(const StoreOptions& o, const std::string& bucket, std::string& problem, bool& usage) {
    usage = true;
    Environment env = [](const char* name) { return std::getenv(name); };
    if (storeNamesService(o, env)) {
        if (!o.storage.empty()) {
            problem = "--storage is for the local cloud; it cannot go with service options";
            return false;
        }
        auto access = resolveStoreAccess(o, bucket, env, problem);
        if (!access) return false;
        access_ = *access;
    } else {
        usage = false;
        auto paths = uploadCachePaths(true);
        cloud_ = std::make_unique<EmbeddedCloud>(o.storage.empty() ? paths.cloudStorage : o.storage);
        if (!cloud_->start(problem)) return false;
        auto sts = cloud_->issueSts();
        access_.endpoint = cloud_->endpoint();
        access_.bucket = bucket.empty() ? cloud_->bucket() : bucket;
        access_.region = cloud_->region();
        access_.keyId = sts.AccessKeyId;
        access_.secret = sts.AccessKeySecret;
        access_.token = sts.SecurityToken;
        access_.expire = sts.Expiration;
        access_.signatureVersion = o.signatureVersion;
    }
    client_ = makeStoreClient(access_);
    return true;
}

std::string StoreSession::redacted(const std::string& text) const {
    return printableText(redactSecrets(text, {access_.secret, access_.token}));
}

}  // namespace quorvane::app
