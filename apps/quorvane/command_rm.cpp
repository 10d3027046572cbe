// `quorvane rm oss://BUCKET/KEY...`: deletes objects; with -r every object below each prefix, a thousand
// keys a request. --dry-run lists what would go and deletes nothing.
#include <set>

#include "command_output.h"
#include "store_commands.h"
#include "store_options.h"

namespace quorvane::app {
namespace {

struct RmOptions {
    StoreOptions store;
    std::vector<std::string> urls;
    bool recursive = false, dryRun = false, quiet = false;
};

struct Tally {
    std::uint64_t deleted = 0, failed = 0;
};

class Remover {
public:
    Remover(const RmOptions& o, CommandOutput& out, StoreSession& store) : o_(o), out_(out), store_(store) {}

    // false when interrupted.
    bool removeKeys(const std::vector<std::string>& keys) {
        const auto& bucket = store_.access().bucket;
        if (o_.dryRun) {
            for (const auto& key : keys) {
                out_.event("planned", {{"bucket", bucket}, {"key", key}});
                out_.line("would delete oss://" + bucket + "/" + key);
            }
            tally.deleted += keys.size();
            return true;
        }
        auto request = std::make_shared<oss::OSSDeleteMultipleObjectsRequest>();
        request->bucketName = bucket;
        request->keys = keys;
        auto task = store_.client().deleteMultipleObjects(request);
        if (!waitForTask<oss::OSSDeleteMultipleObjectsResult>(task, *request)) return false;
        if (auto error = task->error()) {
            for (const auto& key : keys) failed(key, describeError(*error));
            return true;
        }
        std::set<std::string> failedKeys;
        for (const auto& failure : task->result()->failures) {
            failedKeys.insert(failure.key);
            failed(failure.key, {failure.code, failure.message});
        }
        for (const auto& key : keys)
            if (!failedKeys.count(key)) deleted(key);
        return true;
    }

    // Every object below the prefix, a page (at most a thousand) at a time; false when interrupted.
    bool removePrefix(const std::string& prefix) {
        std::string marker;
        while (true) {
            auto request = std::make_shared<oss::OSSListObjectsRequest>();
            request->bucketName = store_.access().bucket;
            request->prefix = prefix;
            request->marker = marker;
            request->maxKeys = 1000;
            auto task = store_.client().listObjects(request);
            if (!waitForTask<oss::OSSListObjectsResult>(task, *request)) return false;
            if (auto error = task->error()) {
                failed(prefix, describeError(*error));
                return true;
            }
            auto page = task->result();
            std::vector<std::string> keys;
            for (const auto& object : page->objects) keys.push_back(object.key);
            if (!keys.empty() && !removeKeys(keys)) return false;
            if (!page->isTruncated) return true;
            marker = page->nextMarker;
        }
    }

    Tally tally;

private:
    void deleted(const std::string& key) {
        ++tally.deleted;
        out_.event("deleted", {{"bucket", store_.access().bucket}, {"key", key}});
        if (!o_.quiet) out_.line("deleted oss://" + store_.access().bucket + "/" + key);
    }
    void failed(const std::string& key, const ErrorText& error) {
        ++tally.failed;
        auto message = store_.redacted(error.message);
        out_.failure("oss://" + store_.access().bucket + "/" + key + ": " + message, "failure",
                     {{"bucket", store_.access().bucket}, {"key", key}, {"code", error.code}, {"message", message}});
    }

    const RmOptions& o_;
    CommandOutput& out_;
    StoreSession& store_;
};

int runRm(const RmOptions& o) {
    CommandOutput out("rm", o.store.json);
    std::string problem, bucket;
    std::vector<std::string> keys;
    for (const auto& text : o.urls) {
        auto url = storeUrl(text, problem);
        if (!url) return out.usage(problem);
        if (!bucket.empty() && url->bucket != bucket) return out.usage("rm works on one bucket at a time");
        bucket = url->bucket;
        if (!o.recursive && (url->key.empty() || url->key.back() == '/'))
            return out.usage("'" + text + "' names no object: give oss://BUCKET/KEY, or -r for everything below a prefix");
        keys.push_back(url->key);
    }
    StoreSession store;
    bool usage = false;
    if (!store.open(o.store, bucket, problem, usage)) return usage ? out.usage(problem) : out.setup(problem);
    installInterruptHandler();
    Remover remover(o, out, store);
    bool finished = true;
    if (o.recursive) {
        for (const auto& prefix : keys)
            if (!(finished = remover.removePrefix(prefix))) break;
    } else {
        for (std::size_t i = 0; i < keys.size() && finished; i += 1000)
            finished = remover.removeKeys(std::vector<std::string>(keys.begin() + static_cast<long>(i),
                                                                   keys.begin() + static_cast<long>(std::min(keys.size(), i + 1000))));
    }
    out.event("summary", {{o.dryRun ? "planned" : "deleted", remover.tally.deleted}, {"failed", remover.tally.failed}});
    if (!o.quiet)
        out.line(std::to_string(remover.tally.deleted) + (o.dryRun ? " objects would be deleted" : " objects deleted") +
                 (remover.tally.failed ? ", " + std::to_string(remover.tally.failed) + " failed" : std::string()));
    if (!finished) return kExitInterrupted;
    return remover.tally.failed ? kExitSomeFailed : kExitUploaded;
}

}  // namespace

Subcommand addRmCommand(CLI::App& app) {
    auto o = std::make_shared<RmOptions>();
    CLI::App* cmd = app.add_subcommand(
        "rm",
        "Delete objects: oss://BUCKET/KEY, or with -r everything below oss://BUCKET/PREFIX (a thousand keys a "
        "request). --dry-run shows what would be deleted.\n"
        "Exit status: 0 deleted, 1 some deletion failed, 2 bad usage, 130 interrupted.");
    cmd->add_option("URL", o->urls, "oss://BUCKET/KEY (with -r: oss://BUCKET/PREFIX), one or more")->required();
    cmd->add_flag("-r,--recursive", o->recursive, "Delete every object below each prefix");
    cmd->add_flag("-n,--dry-run", o->dryRun, "Show what would be deleted; delete nothing");
    cmd->add_flag("-q,--quiet", o->quiet, "Print only failures and errors");
    addStoreOptions(*cmd, o->store);
    return {cmd, [o] { return runRm(*o); }};
}

}  // namespace quorvane::app
