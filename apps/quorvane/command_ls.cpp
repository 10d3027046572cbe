// `quorvane ls oss://BUCKET/PREFIX`: the objects below a prefix with their size, CRC-64 and time; the
// "directories" one level down unless -r.
#include <deque>

#include "command_output.h"
#include "store_commands.h"
#include "store_options.h"

namespace quorvane::app {
namespace {

struct LsOptions {
    StoreOptions store;
    std::string url;
    bool recursive = false;
};

// The CRC-64 the service keeps for each object (ListObjects does not carry it): HEAD, a few at once.
class CrcLookup {
public:
    explicit CrcLookup(oss::OSSClient& client, std::string bucket) : client_(client), bucket_(std::move(bucket)) {}
    void ask(const std::string& key) {
        auto request = std::make_shared<oss::OSSHeadObjectRequest>();
        request->bucketName = bucket_;
        request->objectKey = key;
        pending_.push_back({request, client_.headObject(request)});
    }
    // The oldest answer: its CRC, or nullopt when the service gave none.
    std::optional<std::uint64_t> next(bool& interrupted) {
        auto [request, task] = pending_.front();
        pending_.pop_front();
        interrupted = !waitForTask<oss::OSSHeadObjectResult>(task, *request);
        auto result = task->result();
        return result ? result->remoteCRC64ecma : std::nullopt;
    }
    std::size_t inFlight() const { return pending_.size(); }

private:
    struct Pending {
        std::shared_ptr<oss::OSSHeadObjectRequest> request;
        oss::OSSTask<oss::OSSHeadObjectResult>::Ptr task;
    };
    oss::OSSClient& client_;
    std::string bucket_;
    std::deque<Pending> pending_;
};

std::string padded(std::string text, std::size_t width) {
    if (text.size() < width) text.insert(0, width - text.size(), ' ');
    return text;
}

int runLs(const LsOptions& o) {
    CommandOutput out("ls", o.store.json);
    std::string problem;
    auto url = storeUrl(o.url, problem);
    if (!url) return out.usage(problem);
    StoreSession store;
    bool usage = false;
    if (!store.open(o.store, url->bucket, problem, usage)) return usage ? out.usage(problem) : out.setup(problem);
    installInterruptHandler();
    const auto& bucket = store.access().bucket;

    std::uint64_t objects = 0, prefixes = 0, bytes = 0;
    std::string marker;
    constexpr std::size_t kHeadsInFlight = 8;
    while (true) {
        auto request = std::make_shared<oss::OSSListObjectsRequest>();
        request->bucketName = bucket;
        request->prefix = url->key;
        request->delimiter = o.recursive ? "" : "/";
        request->marker = marker;
        request->maxKeys = 1000;
        auto task = store.client().listObjects(request);
        if (!waitForTask<oss::OSSListObjectsResult>(task, *request)) return kExitInterrupted;
        if (auto error = task->error()) {
            auto text = describeError(*error);
            out.failure("cannot list oss://" + bucket + "/" + url->key + ": " + store.redacted(text.message), "failure",
                        {{"bucket", bucket}, {"prefix", url->key}, {"code", text.code},
                         {"message", store.redacted(text.message)}});
            return kExitSomeFailed;
        }
        auto page = task->result();
        for (const auto& prefix : page->commonPrefixes) {
            ++prefixes;
            out.event("prefix", {{"bucket", bucket}, {"prefix", prefix}});
            out.line(padded("DIR", 14) + "  " + std::string(20, ' ') + "  " + std::string(24, ' ') + "  oss://" + bucket +
                     "/" + prefix);
        }
        CrcLookup crcs(store.client(), bucket);
        std::size_t shown = 0;
        bool interrupted = false;
        auto showNext = [&] {
            const auto& object = page->objects[shown++];
            auto crc = crcs.next(interrupted);
            Value event{{"bucket", bucket}, {"key", object.key}, {"size", object.size}, {"eTag", object.eTag},
                        {"lastModified", object.lastModified}};
            event["crc64"] = crc ? Value(std::to_string(*crc)) : Value(nullptr);
            out.event("object", std::move(event));
            out.line(padded(std::to_string(object.size), 14) + "  " + padded(crc ? std::to_string(*crc) : "-", 20) +
                     "  " + padded(object.lastModified, 24) + "  oss://" + bucket + "/" + object.key);
        };
        for (const auto& object : page->objects) {
            ++objects;
            bytes += object.size;
            crcs.ask(object.key);
            if (crcs.inFlight() >= kHeadsInFlight) showNext();
            if (interrupted) return kExitInterrupted;
        }
        while (crcs.inFlight() > 0 && !interrupted) showNext();
        if (interrupted) return kExitInterrupted;
        if (!page->isTruncated) break;
        marker = page->nextMarker;
    }
    out.event("summary", {{"objects", objects}, {"prefixes", prefixes}, {"bytes", bytes}});
    out.line(std::to_string(objects) + " objects, " + std::to_string(bytes) + " bytes" +
             (prefixes ? ", " + std::to_string(prefixes) + " prefixes" : std::string()));
    return kExitUploaded;
}

}  // namespace

std::optional<OssUrl> storeUrl(const std::string& text, std::string& problem) {
    auto url = parseOssUrl(text);
    if (!url) problem = "'" + text + "': objects are written oss://BUCKET/KEY";
    return url;
}

Subcommand addLsCommand(CLI::App& app) {
    auto o = std::make_shared<LsOptions>();
    CLI::App* cmd = app.add_subcommand(
        "ls",
        "List the objects below oss://BUCKET/PREFIX with their size, CRC-64 (x-oss-hash-crc64ecma) and time; "
        "without -r, the prefixes one level down show as DIR.\n"
        "Exit status: 0 listed, 1 the service refused or failed, 2 bad usage, 130 interrupted.");
    cmd->add_option("URL", o->url, "oss://BUCKET/PREFIX")->required();
    cmd->add_flag("-r,--recursive", o->recursive, "Every object below the prefix, at any depth");
    addStoreOptions(*cmd, o->store);
    return {cmd, [o] { return runLs(*o); }};
}

}  // namespace quorvane::app
