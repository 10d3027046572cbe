// `quorvane config`: writes a profile of the credentials file (endpoint, region, bucket and keys), so
// that later commands need none of them on the command line. The secret is read from standard input
// (without echo on a terminal) unless --secret gives it.
#include <termios.h>
#include <unistd.h>

#include <cstdlib>

#include "command_output.h"
#include "credentials.h"
#include "oss/oss_endpoint.h"
#include "oss/oss_region.h"
#include "profile_file.h"
#include "store_commands.h"

namespace quorvane::app {
namespace {

struct ConfigOptions {
    std::string profile = "default", credentialsFile, endpoint, region, bucket, keyId, secret, token;
    bool json = false;
};

// One line of standard input, not echoed when it is a terminal.
std::string readSecretLine() {
    const bool terminal = isatty(STDIN_FILENO);
    termios saved{};
    if (terminal) {
        std::cerr << "access key secret: " << std::flush;
        tcgetattr(STDIN_FILENO, &saved);
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
    }
    std::string line;
    std::getline(std::cin, line);
    if (terminal) {
        tcsetattr(STDIN_FILENO, TCSANOW, &saved);
        std::cerr << "\n";
    }
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
    return line;
}

int runConfig(ConfigOptions o) {
    CommandOutput out("config", o.json);
    auto scheme = o.endpoint.find("://");
    if (scheme != std::string::npos && o.endpoint.substr(0, scheme) != "http" && o.endpoint.substr(0, scheme) != "https")
        return out.usage("bad endpoint '" + o.endpoint + "': expected https://host or a bare host name");
    if (!o.region.empty() && !oss::isValidRegion(o.region))
        return out.usage("bad --region '" + o.region + "': a region id has only a-z, 0-9 and '-' (for instance cn-hangzhou)");
    if (!o.bucket.empty() && !oss::isValidBucketName(o.bucket))
        return out.usage("bad --bucket '" + o.bucket + "': 3 to 63 lower-case letters, digits and hyphens");
    if (o.profile.empty() || o.profile.find_first_of("[]\n") != std::string::npos)
        return out.usage("bad --profile '" + o.profile + "'");
    if (!o.keyId.empty() && o.secret.empty()) o.secret = readSecretLine();
    if (o.keyId.empty() != o.secret.empty()) return out.usage("--key-id and the secret go together");
    if (o.endpoint.empty() && o.region.empty() && o.bucket.empty() && o.keyId.empty() && o.token.empty())
        return out.usage("nothing to write: give --endpoint, --region, --bucket or --key-id");
    const std::string path =
        !o.credentialsFile.empty() ? o.credentialsFile : defaultCredentialsFile([](const char* n) { return std::getenv(n); });
    std::vector<std::pair<std::string, std::string>> values;
    auto set = [&](const char* key, const std::string& value) {
        if (!value.empty()) values.emplace_back(key, value);
    };
    set("endpoint", o.endpoint);
    set("region", o.region);
    set("bucket", o.bucket);
    set("access_key_id", o.keyId);
    set("access_key_secret", o.secret);
    if (!o.keyId.empty()) values.emplace_back("security_token", o.token);  // new keys: an old token no longer fits
    std::string problem;
    if (!writeProfile(path, o.profile, values, problem)) return out.setup(problem);
    Value written = Value::array();
    for (const auto& [key, value] : values)
        if (!value.empty()) written.push_back(key);
    out.event("configured", {{"profile", o.profile}, {"path", path}, {"written", written}});
    out.line("wrote profile [" + o.profile + "] to " + path + " (mode 0600)");
    return kExitUploaded;
}

}  // namespace

Subcommand addConfigCommand(CLI::App& app) {
    auto o = std::make_shared<ConfigOptions>();
    CLI::App* cmd = app.add_subcommand(
        "config",
        "Write a profile of the credentials file (~/.config/quorvane/credentials, mode 0600): the endpoint, region, "
        "bucket and access keys later commands use when their command line names none. Other profiles, and entries "
        "not given, stay. The secret is read from standard input (not echoed on a terminal) unless --secret gives "
        "it.\n"
        "Exit status: 0 written, 1 the file cannot be written, 2 bad usage.");
    cmd->add_option("--profile", o->profile, "Profile to write")->capture_default_str();
    cmd->add_option("--credentials-file", o->credentialsFile, "INI credentials file (default: ~/.config/quorvane/credentials)");
    cmd->add_option("--endpoint", o->endpoint, "Object-storage endpoint (https://oss-cn-hangzhou.aliyuncs.com)");
    cmd->add_option("--region", o->region, "Region id of the bucket (cn-hangzhou)");
    cmd->add_option("--bucket", o->bucket, "Bucket used when a command names none");
    cmd->add_option("--key-id", o->keyId, "Access key id");
    cmd->add_option("--secret", o->secret, "Access key secret (default: read from standard input)");
    cmd->add_option("--sts-token", o->token, "STS security token, with temporary keys");
    cmd->add_flag("--json", o->json, "One JSON object per event on standard output");
    return {cmd, [o] { return runConfig(*o); }};
}

}  // namespace quorvane::app
