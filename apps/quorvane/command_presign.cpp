// `quorvane presign oss://BUCKET/KEY`: a URL that lets whoever holds it download (or with --put, upload)
// that one object without keys, signed V4 in its query, for --expires (at most 7 days). Nothing is sent.
#include <cstdlib>
#include <ctime>

#include "command_output.h"
#include "presign_expiry.h"
#include "store_commands.h"
#include "store_options.h"

namespace quorvane::app {
namespace {

struct PresignOptions {
    StoreOptions store;
    std::string url, expires = "1h", contentType;
    bool put = false;
};

int runPresign(const PresignOptions& o) {
    CommandOutput out("presign", o.store.json);
    std::string problem;
    auto url = storeUrl(o.url, problem);
    if (!url) return out.usage(problem);
    if (url->key.empty() || url->key.back() == '/') return out.usage("'" + o.url + "' names no object: oss://BUCKET/KEY");
    auto expires = parsePresignExpiry(o.expires);
    if (!expires)
        return out.usage("bad --expires '" + o.expires + "': a duration of 1 second to 7 days such as 900, 15m, 1h or 7d");
    if (!o.contentType.empty() && !o.put) return out.usage("--content-type goes with --put");
    if (o.store.signatureVersion == 1) return out.usage("presigned URLs are signed V4 only");
    if (!storeNamesService(o.store, [](const char* name) { return std::getenv(name); }))
        return out.usage("presigned URLs are for a service: the local cloud stops with this command (give "
                         "--endpoint and keys, or a profile)");
    StoreSession store;
    bool usage = false;
    if (!store.open(o.store, url->bucket, problem, usage)) return usage ? out.usage(problem) : out.setup(problem);
    oss::OSSPresignRequest request;
    request.method = o.put ? "PUT" : "GET";
    request.bucketName = store.access().bucket;
    request.objectKey = url->key;
    request.expires = *expires;
    request.contentType = o.contentType;
    Error error;
    auto signedUrl = store.client().presignObjectURL(request, &error);
    if (!signedUrl) return out.usage(store.redacted(describeError(error).message));
    std::time_t until = std::time(nullptr) + expires->count();
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&until));
    out.event("presigned", {{"url", *signedUrl}, {"method", request.method}, {"bucket", request.bucketName},
                            {"object", request.objectKey}, {"expires", expires->count()}, {"expiresAt", text}});
    out.line(*signedUrl);
    return kExitUploaded;
}

}  // namespace

Subcommand addPresignCommand(CLI::App& app) {
    auto o = std::make_shared<PresignOptions>();
    CLI::App* cmd = app.add_subcommand(
        "presign",
        "Print a presigned URL for oss://BUCKET/KEY: anyone holding it may GET the object (with --put: PUT it, "
        "for instance `curl -T FILE URL`) until it expires. Signed V4 in the query; nothing is sent. Under STS "
        "credentials the URL ends when they do.\n"
        "Exit status: 0 printed, 2 bad usage.");
    cmd->add_option("URL", o->url, "oss://BUCKET/KEY")->required();
    cmd->add_flag("--put", o->put, "A URL to upload the object with PUT (default: to download it with GET)");
    cmd->add_option("--expires", o->expires, "How long the URL works: 900, 15m, 1h, 7d (at most 7 days)")
        ->capture_default_str();
    cmd->add_option("--content-type", o->contentType, "With --put: the Content-Type the upload must send");
    addStoreOptions(*cmd, o->store);
    return {cmd, [o] { return runPresign(*o); }};
}

}  // namespace quorvane::app
