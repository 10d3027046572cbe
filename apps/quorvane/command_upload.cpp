// `quorvane upload FILE...`: uploads real files through VODUploadClient, to the local cloud started
// in-process (no service options) or to the services named on the command line.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <memory>

#include "VODUpload/src/AVCVAssetInfo.h"
#include "VODUpload/src/VODInnerFileInfo.h"
#include "VODUpload/src/VODObjectCache.h"
#include "credentials.h"
#include "foundation/http_client.h"
#include "foundation/log.h"
#include "foundation/user_defaults.h"
#include "oss/oss_log.h"
#include "oss/oss_region.h"
#include "terminal_text.h"
#include "upload_commands.h"
#include "upload_options.h"
#include "upload_records.h"
#include "upload_session.h"
#include "upload_targets.h"
#include "stdin_upload.h"
#include "store_options.h"

namespace quorvane::app {
namespace {

// How long the end of a run waits for requests still in flight (telemetry, cancelled parts).
constexpr std::chrono::seconds kLastRequestsGrace{3};

std::vector<std::string>& commandArguments() {
    static std::vector<std::string> arguments;
    return arguments;
}

// The run's one HTTP client, built here and handed to everything the run makes (storage, video
// service, events); with --bwlimit its cap is shared by all of the run's bodies.
std::shared_ptr<foundation::HttpClient> httpClientFor(const UploadOptions& o) {
    auto options = foundation::HttpClient::sharedOptions();
    if (!o.bwlimit.empty()) options.sendRateLimit = *parseRate(o.bwlimit);
    return std::make_shared<foundation::HttpClient>(options);
}

bool isMediaFile(const std::string& path) {
    auto type = VODInnerFileInfo::fileTypeForExtension(vodPathExtension(path));
    return type != "other";
}

// Checks the command line as a whole; "" when it holds together.
std::string optionsProblem(const UploadOptions& o) {
    if (o.files.empty()) return "no file given";
    if ((!o.include.empty() || !o.exclude.empty()) && !o.recursive) return "--include and --exclude go with -r";
    if (!o.bwlimit.empty() && !parseRate(o.bwlimit))
        return "bad --bwlimit '" + o.bwlimit + "': expected bytes per second such as 500K or 2M";
    if (!o.namesService()) return {};
    if (!o.storage.empty()) return "--storage is for the local cloud; it cannot go with service options";
    if (!o.expire.empty() && o.token.empty()) return "--expire goes with --sts-token";
    if (!o.expire.empty()) {
        auto at = parseIsoUtc(o.expire);
        if (!at) return "bad --expire '" + o.expire + "': expected ISO-8601 UTC such as 2030-01-02T03:04:05Z";
        if (*at <= static_cast<long long>(std::time(nullptr))) return "--expire " + o.expire + " has already passed";
    }
    auto scheme = o.endpoint.find("://");
    if (scheme != std::string::npos) {
        auto name = o.endpoint.substr(0, scheme);
        if ((name != "http" && name != "https") || o.endpoint.size() == scheme + 3)
            return "bad endpoint '" + o.endpoint + "': expected https://host or a bare host name";
    }
    if (!o.region.empty() && !oss::isValidRegion(o.region))
        return "bad --region '" + o.region + "': a region id has only a-z, 0-9 and '-' (for instance cn-hangzhou)";
    if (o.vod && o.namesBucket())
        return "--vod uploads go where the video service says: --endpoint, --bucket and oss:// are for direct uploads";
    return {};
}

// The jobs, or a usage problem in `problem`. `o.files` has lost its oss:// destination by now.
// `bucketNamed`: the command line named a bucket or endpoint (a profile's do not send media files past the
// video service).
std::vector<UploadJob> planJobs(const UploadOptions& o, const KeyRule& rule, bool bucketNamed, bool serviceNamed,
                                std::string& problem) {
    Selection selection{o.recursive, o.include, o.exclude};
    auto files = selectFiles(o.files, selection, problem);
    if (!problem.empty()) return {};
    if (files.empty()) {
        problem = "no file matches";
        return {};
    }
    std::vector<UploadJob> jobs;
    std::vector<SourceFile> direct;
    for (const auto& file : files) {
        UploadJob job{file.display, file.path, {}, false, file.size};
        // Media files go to the video service unless a bucket is named: a named endpoint is never
        // passed over for the region's real video service.
        job.vod = o.vod || (!o.oss && !bucketNamed && isMediaFile(file.path));
        if (o.vod && !isMediaFile(file.path)) {
            problem = file.display + ": --vod takes video, audio or image files (known by their extension)";
            return {};
        }
        if (job.vod && file.size == 0) {
            problem = file.display + ": is empty; the video service takes no empty file (--oss stores an empty object)";
            return {};
        }
        if (job.vod && (!rule.key.empty() || !rule.prefix.empty())) {
            problem = file.display + ": --key and --prefix name objects of direct uploads; the video service names "
                                     "its own (add --oss)";
            return {};
        }
        if (!job.vod && serviceNamed && (o.endpoint.empty() || o.bucket.empty())) {
            problem = file.display + ": direct uploads need an endpoint and a bucket (--endpoint and --bucket or "
                                     "oss://BUCKET/KEY, or a profile's: quorvane config)";
            return {};
        }
        if (!job.vod) direct.push_back(file);
        jobs.push_back(std::move(job));
    }
    auto keys = objectKeys(direct, rule, problem);
    if (!problem.empty()) return {};
    std::size_t next = 0;
    for (auto& job : jobs)
        if (!job.vod) job.object = keys[next++];
    return jobs;
}

// The engine's log lines, appended to --log-file with their time; secrets redacted.
bool openLogFile(const std::string& path, const std::vector<std::string>& secrets, std::string& problem) {
    auto file = std::make_shared<std::ofstream>(path, std::ios::app);
    if (!*file) {
        problem = "cannot open the log file " + path;
        return false;
    }
    foundation::setLogSink([file, secrets](std::string_view line) {
        std::time_t now = std::time(nullptr);
        char stamp[32];
        std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&now));
        *file << stamp << ' ' << redactSecrets(std::string(line), secrets) << std::endl;
    });
    oss::OSSLog::enableLog();
    return true;
}

// `-` as the source: standard input streamed to one object (see stdin_upload.h).
template <class UsageError, class Fail>
int uploadFromStandardInput(const UploadOptions& options, const KeyRule& rule, bool embedded,
                            const Credentials& credentials, UploadProgressView& view, UsageError usageError, Fail fail) {
    if (options.files.size() != 1) return usageError("'-' (standard input) is the only source of its upload");
    if (rule.key.empty()) return usageError("standard input has no name: give its whole key (oss://BUCKET/KEY or --key)");
    if (options.vod) return usageError("standard input goes straight into a bucket, not through the video service");
    if (options.recursive) return usageError("-r does not go with '-' (standard input)");
    if (isatty(STDIN_FILENO)) return usageError("standard input is a terminal: pipe the data in (producer | quorvane upload - ...)");
    StoreAccess access;
    access.caFile = options.caFile;
    access.signatureVersion = options.signatureVersion;
    std::unique_ptr<EmbeddedCloud> cloud;
    std::string problem;
    if (embedded) {
        auto paths = uploadCachePaths(true);
        cloud = std::make_unique<EmbeddedCloud>(options.storage.empty() ? paths.cloudStorage : options.storage);
        if (!cloud->start(problem)) return fail("setup", problem, kExitSomeFailed);
        auto sts = cloud->issueSts();
        access.endpoint = cloud->endpoint();
        access.bucket = cloud->bucket();
        access.region = cloud->region();
        access.keyId = sts.AccessKeyId;
        access.secret = sts.AccessKeySecret;
        access.token = sts.SecurityToken;
        access.expire = sts.Expiration;
    } else {
        if (options.endpoint.empty() || options.bucket.empty())
            return usageError("standard input needs an endpoint and a bucket (--endpoint and oss://BUCKET/KEY, or a profile's)");
        access.endpoint = options.endpoint;
        access.bucket = options.bucket;
        access.region = !options.region.empty() ? options.region : credentials.region;
        if (access.region.empty()) access.region = oss::regionFromEndpoint(options.endpoint).value_or("");
        if (access.region.empty() && options.signatureVersion == 4)
            return usageError("the endpoint '" + options.endpoint + "' names no region, which V4 signatures need: give --region");
        access.keyId = credentials.keyId;
        access.secret = credentials.secret;
        access.token = credentials.token;
        access.expire = credentials.expire;
    }
    if (options.dryRun) {
        view.planned("-", access.bucket, rule.key, 0);
        view.summary({});
        return kExitUploaded;
    }
    access.http = httpClientFor(options);
    int status = uploadStandardInput(access, rule.key, options.partSize, STDIN_FILENO, view);
    if (cloud) cloud->stop();
    return status;
}

int runUpload(UploadOptions options) {
    ViewMode mode = options.json ? ViewMode::Json : (isatty(STDOUT_FILENO) ? ViewMode::Terminal : ViewMode::Plain);
    UploadProgressView view(mode, std::cout, terminalColumns(STDOUT_FILENO));
    view.setQuiet(options.quiet);
    auto fail = [&](const std::string& kind, const std::string& message, int status) {
        std::cerr << "quorvane upload: " << printableText(message) << "\n";
        view.error(kind, message, status);
        return status;
    };
    auto usageError = [&](const std::string& message) { return fail("usage", message, kExitUsage); };

    KeyRule rule{options.key, options.prefix};
    if (!options.files.empty()) {
        if (auto url = parseOssUrl(options.files.back())) {
            if (!options.bucket.empty() && options.bucket != url->bucket)
                return usageError("--bucket " + options.bucket + " and " + options.files.back() + " disagree");
            if (!url->key.empty() && url->key.back() != '/' && !options.key.empty())
                return usageError("the key is given twice: --key and " + options.files.back());
            options.bucket = url->bucket;
            if (url->key.empty() || url->key.back() == '/')
                rule.prefix = url->key + options.prefix;
            else if (!options.prefix.empty())
                return usageError("--prefix goes with oss://BUCKET/ or oss://BUCKET/DIR/, not with a whole key");
            else
                rule.key = url->key;
            options.files.pop_back();
        } else if (options.files.back().find("://") != std::string::npos) {
            return usageError("'" + options.files.back() + "': destinations are written oss://BUCKET/KEY");
        }
    }
    if (auto problem = optionsProblem(options); !problem.empty()) return usageError(problem);
    std::string problem;

    // Keys in the environment, or a profile with an endpoint, name a service as much as options do: the
    // same command never goes to the local cloud with one and to a service with the other.
    const Environment env = [](const char* name) { return std::getenv(name); };
    StoreOptions storeOptions;
    storeOptions.endpoint = options.endpoint;
    storeOptions.keyId = options.keyId;
    storeOptions.secret = options.secret;
    storeOptions.token = options.token;
    storeOptions.profile = options.profile;
    storeOptions.credentialsFile = options.credentialsFile;
    const bool bucketNamed = options.namesBucket();
    const bool embedded = !options.namesService() && !storeNamesService(storeOptions, env);
    if (!embedded && !options.storage.empty())
        return usageError("--storage is for the local cloud; it cannot go with service options, keys in the "
                          "environment or a profile with an endpoint");
    Credentials credentials;
    if (!embedded) {
        CredentialInputs inputs{{options.keyId, options.secret, options.token, options.expire, {}, {}, {}, {}},
                                options.profile, options.credentialsFile, env};
        auto resolved = resolveCredentials(inputs, problem);
        // A dry run sends nothing: it needs no keys, only where the files would go.
        if (!resolved && !options.dryRun) return usageError(problem);
        problem.clear();
        if (resolved) credentials = *resolved;
        // The endpoint, region and bucket of the place the keys came from, where the command line gives none.
        if (options.endpoint.empty()) options.endpoint = credentials.endpoint;
        if (options.bucket.empty()) options.bucket = credentials.bucket;
        if (!credentials.token.empty() && credentials.expire.empty()) {
            // The engine keeps an expiry with temporary credentials but never acts on it: the service
            // says when they have expired.
            std::time_t later = std::time(nullptr) + 3600;
            char text[32];
            std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&later));
            credentials.expire = text;
        }
    }

    if (std::find(options.files.begin(), options.files.end(), "-") != options.files.end())
        return uploadFromStandardInput(options, rule, embedded, credentials, view, usageError, fail);

    auto jobs = planJobs(options, rule, bucketNamed, !embedded, problem);
    if (!problem.empty()) return usageError(problem);

    if (options.dryRun) {
        for (const auto& job : jobs)
            view.planned(job.display, job.vod ? "(video service)" : (embedded ? "(local cloud)" : options.bucket),
                         job.vod ? "(chosen by the video service)" : job.object, job.size);
        RunSummary none;
        view.summary(none);
        return kExitUploaded;
    }

    if (!options.logFile.empty() &&
        !openLogFile(options.logFile, {credentials.secret, credentials.token}, problem))
        return usageError(problem);
    if (options.verbose)
        oss::OSSLog::enableLog();
    else
        silenceMediaFormatLibrary();  // reading media facts of a file FFmpeg cannot parse is not news

    auto paths = uploadCachePaths(embedded);
    if (!prepareUploadCache(paths, problem)) return fail("setup", problem, kExitSomeFailed);
    UploadPlan plan;
    plan.resumeCache = std::make_shared<VODObjectCache>(std::make_shared<foundation::UserDefaults>(paths.defaultsFile));
    plan.jobs = std::move(jobs);
    plan.partSize = options.partSize;
    plan.maxRetries = options.retries;
    plan.idleTimeout = options.idleTimeout;
    plan.parallel = options.jobs;
    plan.caFile = options.caFile;
    plan.signatureVersion = options.signatureVersion;
    plan.vodSignature =
        options.vodSignature == 3 ? VODSignatureVersion::Acs3HmacSha256 : VODSignatureVersion::HmacSha1;
    plan.recordDir = paths.recordDir;
    plan.http = httpClientFor(options);
    plan.resumeHint = resumeCommand(commandArguments());
    if (!options.title.empty()) plan.title = options.title;

    std::unique_ptr<EmbeddedCloud> cloud;
    if (embedded) {
        cloud = std::make_unique<EmbeddedCloud>(options.storage.empty() ? paths.cloudStorage : options.storage);
        if (!cloud->start(problem)) return fail("setup", problem, kExitSomeFailed);
        auto sts = cloud->issueSts();
        plan.endpoint = cloud->endpoint();
        plan.vodBaseUrl = cloud->endpoint() + "/";
        plan.logServiceEndpoint = cloud->endpoint();
        plan.bucket = cloud->bucket();
        plan.region = cloud->region();
        plan.storageRegion = cloud->region();
        plan.keyId = sts.AccessKeyId;
        plan.secret = sts.AccessKeySecret;
        plan.token = sts.SecurityToken;
        plan.expire = sts.Expiration;
        view.note("local cloud at " + plan.endpoint + " (storage " +
                  (options.storage.empty() ? paths.cloudStorage : options.storage) + ")");
    } else {
        if (!options.vodEndpoint.empty()) plan.vodBaseUrl = options.vodEndpoint;
        if (const char* logs = std::getenv("QUORVANE_LOG_SERVICE_ENDPOINT")) plan.logServiceEndpoint = logs;
        plan.endpoint = options.endpoint;
        plan.bucket = options.bucket;
        plan.region = !options.region.empty() ? options.region : credentials.region;
        if (!plan.region.empty() && !oss::isValidRegion(plan.region))
            return usageError("bad region '" + plan.region + "' in the " + credentials.source +
                              ": a region id has only a-z, 0-9 and '-'");
        plan.storageRegion = !plan.region.empty() ? plan.region : oss::regionFromEndpoint(options.endpoint).value_or("");
        const bool direct = std::any_of(plan.jobs.begin(), plan.jobs.end(), [](const auto& job) { return !job.vod; });
        if (direct && options.signatureVersion == 4 && plan.storageRegion.empty())
            return usageError("the endpoint '" + options.endpoint +
                              "' names no region, which V4 signatures need: give --region (for instance "
                              "cn-hangzhou), or --signature-version 1 for a bucket that still takes V1");
        plan.keyId = credentials.keyId;
        plan.secret = credentials.secret;
        plan.token = credentials.token;
        plan.expire = credentials.expire;
        if (options.verbose) view.note("credentials from the " + credentials.source);
    }
    if (mode == ViewMode::Terminal) {
        watchTerminalSize();
        view.setColumnsProbe([] { return terminalResized() ? terminalColumns(STDOUT_FILENO) : 0; });
    }
    auto http = plan.http;
    auto session = std::make_shared<UploadSession>(std::move(plan), view, cloud.get());
    int status = session->run();
    // The last events of the run may still be on their way to the log service: they get a moment to
    // arrive while the local cloud still listens, and the process ends with no request in flight.
    if (status != kExitInterrupted) session->settle(kLastRequestsGrace);
    session.reset();
    http->waitUntilIdle(kLastRequestsGrace);
    if (cloud) cloud->stop();
    return status;
}

}  // namespace

void setCommandArguments(std::vector<std::string> arguments) { commandArguments() = std::move(arguments); }

Subcommand addUploadCommand(CLI::App& app) {
    auto o = std::make_shared<UploadOptions>();
    CLI::App* cmd = app.add_subcommand(
        "upload",
        "Upload files through the resumable upload engine. Without service options they go to a local cloud "
        "started in-process (storage under ~/.cache/quorvane). Ctrl-C pauses; the same command resumes; a file "
        "already stored with the same size and CRC-64 is not sent again.\n"
        "Credentials: --key-id/--secret, else OSS_ACCESS_KEY_ID/OSS_ACCESS_KEY_SECRET/OSS_SESSION_TOKEN (or the "
        "ALIBABA_CLOUD_ names), else the profile of ~/.config/quorvane/credentials.\n"
        "Exit status: 0 all uploaded, 1 some upload failed, 2 bad usage or a file that is missing, a directory "
        "or unreadable (nothing is uploaded then), 130 interrupted.");
    addUploadOptions(*cmd, *o);
    return {cmd, [o] { return runUpload(*o); }};
}

}  // namespace quorvane::app
