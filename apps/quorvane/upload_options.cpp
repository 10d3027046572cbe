#include "upload_options.h"

#include <cmath>

namespace quorvane::app {

bool UploadOptions::namesService() const {
    return namesBucket() || !keyId.empty() || !secret.empty() || !token.empty() || !expire.empty() ||
           !vodEndpoint.empty() || !profile.empty() || !credentialsFile.empty();
}

bool UploadOptions::namesBucket() const {
    return !endpoint.empty() || !bucket.empty() || (!files.empty() && files.back().rfind("oss://", 0) == 0);
}

void addUploadOptions(CLI::App& cmd, UploadOptions& o) {
    cmd.add_option("FILE", o.files, "Files (directories with -r) to upload; the last may be oss://BUCKET/KEY");
    cmd.add_flag("-r,--recursive", o.recursive, "Upload the files inside directories, keys relative to them");
    // One glob per option, so that `--include '*.jpg' DIR` leaves DIR to the files.
    cmd.add_option("--include", o.include, "With -r: only files whose path or name matches this glob (repeatable)")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    cmd.add_option("--exclude", o.exclude, "With -r: skip files whose path or name matches this glob (repeatable)")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    auto key = cmd.add_option("--key", o.key, "Object key of the one file (default: its name)");
    auto prefix = cmd.add_option("--prefix", o.prefix, "Put before each file's key (\"photos/2024/\")");
    key->excludes(prefix);
    cmd.add_option("--title", o.title, "Video title (default: the file name without extension)");
    auto vod = cmd.add_flag("--vod", o.vod, "Register through the video service (default for media files "
                                             "when no bucket is named)");
    auto oss = cmd.add_flag("--oss", o.oss, "Put the files straight into the bucket");
    vod->excludes(oss);
    cmd.add_option("--endpoint", o.endpoint, "Object-storage endpoint of direct uploads (https://...)");
    cmd.add_option("--bucket", o.bucket, "Bucket of direct uploads");
    cmd.add_option("--key-id", o.keyId, "Access key id (else OSS_ACCESS_KEY_ID, else the profile)");
    cmd.add_option("--secret", o.secret,
                   "Access key secret; prefer OSS_ACCESS_KEY_SECRET or a profile: options show in ps");
    cmd.add_option("--sts-token", o.token, "STS security token (else OSS_SESSION_TOKEN, else the profile)");
    cmd.add_option("--expire", o.expire, "Expiry of the STS credentials, ISO-8601 UTC (optional)");
    cmd.add_option("--profile", o.profile, "Profile of the credentials file (default: QUORVANE_PROFILE or default)");
    cmd.add_option("--credentials-file", o.credentialsFile,
                   "INI credentials file (default: ~/.config/quorvane/credentials)");
    cmd.add_option("--vod-endpoint", o.vodEndpoint, "Video-service base URL (default: the region's)");
    cmd.add_option("--region", o.region,
                   "Region of the bucket and the video service, such as cn-hangzhou (default: the profile's, else "
                   "the one an oss-<region>.aliyuncs.com endpoint names; the video service: cn-shanghai)");
    cmd.add_option("--signature-version", o.signatureVersion,
                   "Object-storage request signatures: 4 (OSS4-HMAC-SHA256, which buckets made since September "
                   "2025 require) or 1")
        ->check(CLI::IsMember({1, 4}))
        ->capture_default_str();
    cmd.add_option("--vod-signature", o.vodSignature,
                   "Signature of video-service requests: 1 (HMAC-SHA1) or 3 (ACS3-HMAC-SHA256)")
        ->check(CLI::IsMember({1, 3}))
        ->capture_default_str();
    cmd.add_option("--ca-file", o.caFile, "Extra CA certificates (PEM) to trust for TLS")->check(CLI::ExistingFile);
    cmd.add_option("--part-size", o.partSize, "Multipart part size in bytes")
        ->check(CLI::Range(102400, 2147483647))
        ->capture_default_str();
    cmd.add_option("--retries", o.retries, "Retries of one file in all after network errors, 2 s apart")
        ->check(CLI::Range(0, 1000000))
        ->capture_default_str();
    cmd.add_option("--idle-timeout", o.idleTimeout,
                   "Seconds a request may go without a byte moving either way before it is given up (a retry)")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    cmd.add_option("-j,--jobs", o.jobs, "Files uploaded at once")->check(CLI::Range(1, 64))->capture_default_str();
    cmd.add_option("--bwlimit", o.bwlimit, "Upload rate limit of the whole process (\"512K\", \"2M\": bytes/s)");
    cmd.add_flag("-n,--dry-run", o.dryRun, "Show what would be uploaded where; send nothing");
    auto quiet = cmd.add_flag("-q,--quiet", o.quiet, "Print only failures and errors");
    auto json = cmd.add_flag("--json", o.json, "One JSON object per event on standard output");
    quiet->excludes(json);
    cmd.add_option("--storage", o.storage, "Storage directory of the local cloud");
    cmd.add_option("--log-file", o.logFile, "Append the engine's log lines to this file");
    cmd.add_flag("--verbose", o.verbose, "Log the engine's steps to standard error");
}

std::optional<std::uint64_t> parseRate(const std::string& text) {
    std::size_t used = 0;
    double value;
    try {
        value = std::stod(text, &used);
    } catch (const std::exception&) {
        return std::nullopt;
    }
    std::string unit = text.substr(used);
    if (unit.size() >= 2 && unit.substr(unit.size() - 2) == "/s") unit.resize(unit.size() - 2);
    static const std::pair<const char*, double> units[] = {
        {"", 1},           {"B", 1},
        {"K", 1024},       {"KB", 1024},       {"KiB", 1024},
        {"M", 1048576},    {"MB", 1048576},    {"MiB", 1048576},
        {"G", 1073741824}, {"GB", 1073741824}, {"GiB", 1073741824},
    };
    if (!unit.empty()) unit[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(unit[0])));
    double scale = 0;
    for (const auto& [name, factor] : units)
        if (unit == name) scale = factor;
    if (scale == 0) return std::nullopt;
    double rate = value * scale;
    if (!std::isfinite(rate) || rate < 1 || rate > 1e15) return std::nullopt;
    return static_cast<std::uint64_t>(rate);
}

std::string resumeCommand(const std::vector<std::string>& arguments) {
    std::string line = "quorvane";
    bool hideNext = false;
    for (const auto& argument : arguments) {
        std::string shown = argument;
        if (hideNext) shown = "***";
        hideNext = argument == "--secret" || argument == "--sts-token";
        for (const char* option : {"--secret=", "--sts-token="})
            if (argument.rfind(option, 0) == 0) shown = std::string(option) + "***";
        bool plain = !shown.empty() && shown.find_first_not_of(
                                           "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./:=,@+%") ==
                                           std::string::npos;
        if (plain) {
            line += " " + shown;
            continue;
        }
        std::string quoted = "'";
        for (char c : shown) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
        line += " " + quoted + "'";
    }
    return line;
}

}  // namespace quorvane::app
