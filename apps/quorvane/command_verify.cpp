// `quorvane verify FILE... oss://BUCKET/PREFIX`: whether each file is stored, under the key `quorvane
// upload` gives it, with the same size and CRC-64. Nothing is sent but HEAD requests.
#include "command_output.h"
#include "store_commands.h"
#include "store_options.h"
#include "terminal_text.h"
#include "upload_records.h"

namespace quorvane::app {
namespace {

struct VerifyOptions {
    StoreOptions store;
    std::vector<std::string> arguments;  // files, then oss://BUCKET/KEY-or-PREFIX
    std::vector<std::string> include, exclude;
    bool recursive = false, quiet = false;
};

int runVerify(VerifyOptions o) {
    CommandOutput out("verify", o.store.json);
    std::string problem;
    if (o.arguments.size() < 2) return out.usage("give the files and then oss://BUCKET/KEY or oss://BUCKET/PREFIX/");
    auto url = storeUrl(o.arguments.back(), problem);
    if (!url) return out.usage(problem);
    o.arguments.pop_back();
    if ((!o.include.empty() || !o.exclude.empty()) && !o.recursive) return out.usage("--include and --exclude go with -r");
    auto files = selectFiles(o.arguments, Selection{o.recursive, o.include, o.exclude}, problem);
    if (!problem.empty()) return out.usage(problem);
    if (files.empty()) return out.usage("no file matches");
    KeyRule rule;
    if (url->key.empty() || url->key.back() == '/') rule.prefix = url->key;
    else rule.key = url->key;
    auto keys = objectKeys(files, rule, problem);
    if (!problem.empty()) return out.usage(problem);

    StoreSession store;
    bool usage = false;
    if (!store.open(o.store, url->bucket, problem, usage)) return usage ? out.usage(problem) : out.setup(problem);
    installInterruptHandler();
    const auto& bucket = store.access().bucket;

    // The HEADs go out together; each file is read while they travel.
    std::vector<std::shared_ptr<oss::OSSHeadObjectRequest>> requests;
    std::vector<oss::OSSTask<oss::OSSHeadObjectResult>::Ptr> tasks;
    for (const auto& key : keys) {
        auto request = std::make_shared<oss::OSSHeadObjectRequest>();
        request->bucketName = bucket;
        request->objectKey = key;
        requests.push_back(request);
        tasks.push_back(store.client().headObject(request));
    }
    std::uint64_t matched = 0, differing = 0;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const auto& file = files[i];
        auto localCrc = fileCrc64(file.path);
        if (!waitForTask<oss::OSSHeadObjectResult>(tasks[i], *requests[i])) {
            for (auto& request : requests) request->cancel();
            return kExitInterrupted;
        }
        Value event{{"file", file.display}, {"bucket", bucket}, {"object", keys[i]}, {"size", file.size}};
        event["crc64"] = localCrc ? Value(std::to_string(*localCrc)) : Value(nullptr);
        std::string reason;
        auto stored = tasks[i]->result();
        if (auto error = tasks[i]->error()) {
            auto text = describeError(*error);
            reason = error->code == -404 || text.code == "NoSuchKey" ? "not stored" : store.redacted(text.message);
            event["code"] = text.code;
        } else {
            event["storedSize"] = stored->contentLength;
            event["storedCrc64"] = stored->remoteCRC64ecma ? Value(std::to_string(*stored->remoteCRC64ecma)) : Value(nullptr);
            if (!localCrc) reason = "the file cannot be read";
            else if (static_cast<std::uint64_t>(stored->contentLength) != file.size)
                reason = "stored with " + std::to_string(stored->contentLength) + " bytes, the file has " +
                         std::to_string(file.size);
            else if (!stored->remoteCRC64ecma) reason = "the service keeps no CRC-64 for it";
            else if (*stored->remoteCRC64ecma != *localCrc) reason = "the CRC-64 differs";
        }
        const bool ok = reason.empty();
        event["ok"] = ok;
        if (!ok) event["reason"] = reason;
        const std::string where = printableText(file.display) + " -> oss://" + bucket + "/" + printableText(keys[i]);
        if (ok) {
            ++matched;
            out.event("verified", std::move(event));
            if (!o.quiet) out.line("OK        " + where);
        } else {
            ++differing;
            out.event("verified", std::move(event));
            if (!o.store.json) std::cout << "MISMATCH  " << where << ": " << reason << std::endl;
        }
    }
    out.event("summary", {{"matched", matched}, {"differing", differing}});
    if (!o.quiet) out.line(std::to_string(matched) + " match, " + std::to_string(differing) + " differ");
    return differing ? kExitSomeFailed : kExitUploaded;
}

}  // namespace

Subcommand addVerifyCommand(CLI::App& app) {
    auto o = std::make_shared<VerifyOptions>();
    CLI::App* cmd = app.add_subcommand(
        "verify",
        "Compare local files with what is stored: each file's size and CRC-64 against the object `quorvane upload` "
        "would have stored it as (oss://BUCKET/KEY for one file, oss://BUCKET/PREFIX/ for several; -r for "
        "directories).\n"
        "Exit status: 0 every file matches, 1 some file differs or is not stored, 2 bad usage, 130 interrupted.");
    cmd->add_option("FILE", o->arguments, "Files (directories with -r), then oss://BUCKET/KEY or oss://BUCKET/PREFIX/")
        ->required();
    cmd->add_flag("-r,--recursive", o->recursive, "Compare the files inside directories, keys relative to them");
    cmd->add_option("--include", o->include, "With -r: only files whose path or name matches this glob (repeatable)")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    cmd->add_option("--exclude", o->exclude, "With -r: skip files whose path or name matches this glob (repeatable)")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    cmd->add_flag("-q,--quiet", o->quiet, "Print only differences and errors");
    addStoreOptions(*cmd, o->store);
    return {cmd, [o] { return runVerify(*o); }};
}

}  // namespace quorvane::app
