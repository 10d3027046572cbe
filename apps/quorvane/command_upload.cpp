// `quorvane upload FILE...`: uploads real files through VODUploadClient, to the local cloud started
// in-process (no service options) or to the services named on the command line.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include "VODUpload/src/AVCVAssetInfo.h"
#include "VODUpload/src/VODInnerFileInfo.h"
#include "VODUpload/src/VODServiceEndpoint.h"
#include "foundation/user_defaults.h"
#include "oss/oss_log.h"
#include "upload_commands.h"
#include "upload_records.h"
#include "upload_session.h"

namespace quorvane::app {
namespace {
namespace fs = std::filesystem;

struct UploadOptions {
    std::vector<std::string> files;
    std::string title;
    bool vod = false, oss = false, json = false, verbose = false;
    std::string endpoint, bucket, keyId, secret, token, expire, storage, vodEndpoint;
    std::string region = "cn-shanghai";
    std::int32_t partSize = 1048576;
    std::int32_t retries = 5;

    bool namesService() const {
        return !endpoint.empty() || !bucket.empty() || !keyId.empty() || !secret.empty() || !token.empty() ||
               !expire.empty() || !vodEndpoint.empty();
    }
};

int usageError(const std::string& message) {
    std::cerr << "quorvane upload: " << message << "\n";
    return kExitUsage;
}

// Why the file cannot be uploaded, or "" when it can.
std::string fileProblem(const std::string& path) {
    std::error_code ec;
    auto status = fs::status(path, ec);
    if (ec || !fs::exists(status)) return path + ": no such file";
    if (fs::is_directory(status)) return path + ": is a directory (give the files inside it)";
    if (!fs::is_regular_file(status)) return path + ": not a regular file";
    std::ifstream probe(path, std::ios::binary);
    if (!probe) return path + ": cannot be read (permission denied)";
    return {};
}

bool isMediaFile(const std::string& path) {
    auto type = VODInnerFileInfo::fileTypeForExtension(vodPathExtension(path));
    return type != "other";
}

// Checks the command line as a whole; "" when it holds together.
std::string optionsProblem(const UploadOptions& o) {
    if (o.files.empty()) return "no file given";
    if (!o.namesService()) return {};
    if (!o.storage.empty()) return "--storage is for the local cloud; it cannot go with service options";
    if (o.keyId.empty() || o.secret.empty()) return "services need --key-id and --secret";
    if (o.token.empty() != o.expire.empty()) return "--sts-token and --expire go together";
    auto scheme = o.endpoint.find("://");
    if (scheme != std::string::npos) {
        auto name = o.endpoint.substr(0, scheme);
        if ((name != "http" && name != "https") || o.endpoint.size() == scheme + 3)
            return "bad endpoint '" + o.endpoint + "': expected https://host or a bare host name";
    }
    return {};
}

std::string resumeHint(const UploadOptions& o) {
    std::string hint = "quorvane upload";
    for (const auto& file : o.files) hint += " '" + file + "'";
    if (o.vod) hint += " --vod";
    if (o.oss) hint += " --oss";
    if (!o.title.empty()) hint += " --title '" + o.title + "'";
    if (o.partSize != 1048576) hint += " --part-size " + std::to_string(o.partSize);
    if (!o.storage.empty()) hint += " --storage '" + o.storage + "'";
    if (o.namesService()) hint += " <the same service options>";  // they hold secrets: never echoed
    if (o.json) hint += " --json";
    return hint;
}

// The jobs, or a usage problem in `problem`.
std::vector<UploadJob> planJobs(const UploadOptions& o, std::string& problem) {
    std::vector<UploadJob> jobs;
    for (const auto& file : o.files) {
        problem = fileProblem(file);
        if (!problem.empty()) return {};
        UploadJob job;
        job.display = file;
        job.path = fs::absolute(file).lexically_normal().string();
        std::error_code ec;
        job.size = fs::file_size(job.path, ec);
        job.vod = o.vod || (!o.oss && isMediaFile(file));
        if (o.vod && !isMediaFile(file)) {
            problem = file + ": --vod takes video, audio or image files (known by their extension)";
            return {};
        }
        if (!job.vod && o.namesService() && (o.endpoint.empty() || o.bucket.empty())) {
            problem = file + ": direct uploads need --endpoint and --bucket";
            return {};
        }
        jobs.push_back(std::move(job));
    }
    return jobs;
}

int runUpload(const UploadOptions& options) {
    if (auto problem = optionsProblem(options); !problem.empty()) return usageError(problem);
    std::string problem;
    auto jobs = planJobs(options, problem);
    if (!problem.empty()) return usageError(problem);
    if (options.verbose)
        oss::OSSLog::enableLog();
    else
        silenceMediaFormatLibrary();  // reading media facts of a file FFmpeg cannot parse is not news

    const bool embedded = !options.namesService();
    auto paths = uploadCachePaths(embedded);
    if (!prepareUploadCache(paths, problem)) return usageError(problem);
    foundation::UserDefaults::setStandardPath(paths.defaultsFile);  // the resume cache lives there

    ViewMode mode = options.json ? ViewMode::Json : (isatty(STDOUT_FILENO) ? ViewMode::Terminal : ViewMode::Plain);
    UploadProgressView view(mode, std::cout);
    UploadPlan plan;
    plan.jobs = std::move(jobs);
    plan.partSize = options.partSize;
    plan.maxRetries = options.retries;
    plan.recordDir = paths.recordDir;
    plan.resumeHint = resumeHint(options);
    if (!options.title.empty()) plan.title = options.title;

    std::unique_ptr<EmbeddedCloud> cloud;
    if (embedded) {
        cloud = std::make_unique<EmbeddedCloud>(options.storage.empty() ? paths.cloudStorage : options.storage);
        if (!cloud->start(problem)) {
            std::cerr << "quorvane upload: " << problem << "\n";
            return kExitSomeFailed;
        }
        auto sts = cloud->issueSts();
        plan.endpoint = cloud->endpoint();
        plan.bucket = cloud->bucket();
        plan.region = cloud->region();
        plan.keyId = sts.AccessKeyId;
        plan.secret = sts.AccessKeySecret;
        plan.token = sts.SecurityToken;
        plan.expire = sts.Expiration;
        view.note("local cloud at " + plan.endpoint + " (storage " +
                  (options.storage.empty() ? paths.cloudStorage : options.storage) + ")");
    } else {
        if (!options.vodEndpoint.empty()) VODServiceEndpoint::setBaseUrl(options.vodEndpoint);
        plan.endpoint = options.endpoint;
        plan.bucket = options.bucket;
        plan.region = options.region;
        plan.keyId = options.keyId;
        plan.secret = options.secret;
        plan.token = options.token;
        plan.expire = options.expire;
    }
    auto session = std::make_shared<UploadSession>(std::move(plan), view, cloud.get());
    int status = session->run();
    if (cloud) cloud->stop();
    return status;
}

}  // namespace

Subcommand addUploadCommand(CLI::App& app) {
    auto o = std::make_shared<UploadOptions>();
    CLI::App* cmd = app.add_subcommand(
        "upload",
        "Upload files through the resumable upload engine. Without service options they go to a local cloud "
        "started in-process (storage under ~/.cache/quorvane). Ctrl-C pauses; the same command resumes.\n"
        "Exit status: 0 all uploaded, 1 some upload failed, 2 bad usage or a file that is missing, a directory "
        "or unreadable (nothing is uploaded then), 130 interrupted.");
    cmd->add_option("FILE", o->files, "Files to upload");
    cmd->add_option("--title", o->title, "Video title (default: the file name without extension)");
    auto vod = cmd->add_flag("--vod", o->vod, "Register through the video service (default for media files)");
    auto oss = cmd->add_flag("--oss", o->oss, "Put the files straight into the bucket (default for other files)");
    vod->excludes(oss);
    cmd->add_option("--endpoint", o->endpoint, "Object-storage endpoint of direct uploads (https://...)");
    cmd->add_option("--bucket", o->bucket, "Bucket of direct uploads");
    cmd->add_option("--key-id", o->keyId, "Access key id");
    cmd->add_option("--secret", o->secret, "Access key secret");
    cmd->add_option("--sts-token", o->token, "STS security token (temporary credentials)");
    cmd->add_option("--expire", o->expire, "Expiry of the STS credentials (ISO-8601)");
    cmd->add_option("--vod-endpoint", o->vodEndpoint, "Video-service base URL (default: the region's)");
    cmd->add_option("--region", o->region, "Video-service region")->capture_default_str();
    cmd->add_option("--part-size", o->partSize, "Multipart part size in bytes")
        ->check(CLI::Range(102400, 2147483647))
        ->capture_default_str();
    cmd->add_option("--retries", o->retries, "Retries after network errors, 2 s apart")
        ->check(CLI::Range(0, 1000000))
        ->capture_default_str();
    cmd->add_flag("--json", o->json, "One JSON object per event on standard output");
    cmd->add_option("--storage", o->storage, "Storage directory of the local cloud");
    cmd->add_flag("--verbose", o->verbose, "Log the engine's steps to standard error");
    return {cmd, [o] { return runUpload(*o); }};
}

}  // namespace quorvane::app
