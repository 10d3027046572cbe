// `quorvane uploads oss://BUCKET/PREFIX`: the multipart uploads that were never completed nor aborted
// (they keep their parts, and cost storage, until one of the two); --abort ends them, all below the
// prefix or the one --id names.
#include "command_output.h"
#include "store_commands.h"
#include "store_options.h"

namespace quorvane::app {
namespace {

struct UploadsOptions {
    StoreOptions store;
    std::string url, id;
    bool abort = false, quiet = false;
};

int runUploads(const UploadsOptions& o) {
    CommandOutput out("uploads", o.store.json);
    std::string problem;
    auto url = storeUrl(o.url, problem);
    if (!url) return out.usage(problem);
    if (!o.id.empty() && !o.abort) return out.usage("--id goes with --abort");
    StoreSession store;
    bool usage = false;
    if (!store.open(o.store, url->bucket, problem, usage)) return usage ? out.usage(problem) : out.setup(problem);
    installInterruptHandler();
    const auto& bucket = store.access().bucket;

    std::vector<oss::OSSMultipartUploadSummary> uploads;
    std::string keyMarker, idMarker;
    while (true) {
        auto request = std::make_shared<oss::OSSListMultipartUploadsRequest>();
        request->bucketName = bucket;
        request->prefix = url->key;
        request->keyMarker = keyMarker;
        request->uploadIdMarker = idMarker;
        auto task = store.client().listMultipartUploads(request);
        if (!waitForTask<oss::OSSListMultipartUploadsResult>(task, *request)) return kExitInterrupted;
        if (auto error = task->error()) {
            auto text = describeError(*error);
            auto message = store.redacted(text.message);
            out.failure("cannot list the uploads of oss://" + bucket + "/" + url->key + ": " + message, "failure",
                        {{"bucket", bucket}, {"prefix", url->key}, {"code", text.code}, {"message", message}});
            return kExitSomeFailed;
        }
        auto page = task->result();
        for (const auto& upload : page->uploads)
            if (o.id.empty() || upload.uploadId == o.id) uploads.push_back(upload);
        if (!page->isTruncated) break;
        keyMarker = page->nextKeyMarker;
        idMarker = page->nextUploadIdMarker;
    }
    if (!o.id.empty() && uploads.empty()) {
        out.failure("no unfinished upload " + o.id + " below oss://" + bucket + "/" + url->key, "failure",
                    {{"bucket", bucket}, {"uploadId", o.id}, {"code", "NoSuchUpload"},
                     {"message", "no such unfinished upload"}});
        return kExitSomeFailed;
    }

    std::uint64_t aborted = 0, failed = 0;
    for (const auto& upload : uploads) {
        Value fields{{"bucket", bucket}, {"key", upload.key}, {"uploadId", upload.uploadId}, {"initiated", upload.initiated}};
        if (!o.abort) {
            out.event("upload", std::move(fields));
            out.line(upload.initiated + "  " + upload.uploadId + "  oss://" + bucket + "/" + upload.key);
            continue;
        }
        auto request = std::make_shared<oss::OSSAbortMultipartUploadRequest>();
        request->bucketName = bucket;
        request->objectKey = upload.key;
        request->uploadId = upload.uploadId;
        auto task = store.client().abortMultipartUpload(request);
        if (!waitForTask<oss::OSSAbortMultipartUploadResult>(task, *request)) return kExitInterrupted;
        if (auto error = task->error()) {
            ++failed;
            auto text = describeError(*error);
            fields["code"] = text.code;
            fields["message"] = store.redacted(text.message);
            out.failure("cannot abort " + upload.uploadId + " of oss://" + bucket + "/" + upload.key + ": " +
                            store.redacted(text.message), "failure", std::move(fields));
            continue;
        }
        ++aborted;
        out.event("aborted", std::move(fields));
        if (!o.quiet) out.line("aborted " + upload.uploadId + "  oss://" + bucket + "/" + upload.key);
    }
    out.event("summary", {{"uploads", uploads.size()}, {"aborted", aborted}, {"failed", failed}});
    if (!o.quiet)
        out.line(std::to_string(uploads.size()) + " unfinished uploads" +
                 (o.abort ? ", " + std::to_string(aborted) + " aborted" : std::string()) +
                 (failed ? ", " + std::to_string(failed) + " failed" : std::string()));
    return failed ? kExitSomeFailed : kExitUploaded;
}

}  // namespace

Subcommand addUploadsCommand(CLI::App& app) {
    auto o = std::make_shared<UploadsOptions>();
    CLI::App* cmd = app.add_subcommand(
        "uploads",
        "List the unfinished multipart uploads below oss://BUCKET/PREFIX (started, never completed nor aborted: "
        "their parts are kept and billed). --abort ends them all, or only the one --id names.\n"
        "Exit status: 0 listed (or aborted), 1 some request failed or --id names no upload, 2 bad usage, 130 "
        "interrupted.");
    cmd->add_option("URL", o->url, "oss://BUCKET/ or oss://BUCKET/PREFIX")->required();
    cmd->add_flag("--abort", o->abort, "Abort the uploads listed");
    cmd->add_option("--id", o->id, "With --abort: only the upload with this id");
    cmd->add_flag("-q,--quiet", o->quiet, "Print only failures and errors");
    addStoreOptions(*cmd, o->store);
    return {cmd, [o] { return runUploads(*o); }};
}

}  // namespace quorvane::app
