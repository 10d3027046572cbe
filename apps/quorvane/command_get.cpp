// `quorvane get oss://BUCKET/KEY [DEST]`: downloads an object in ranges into DEST.quorvane-part, which a
// rerun continues (see download_record.h), checks the CRC-64 of the whole file against the one the
// service keeps, and only then puts the file in place.
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "command_output.h"
#include "download_record.h"
#include "oss/crc64.h"
#include "store_commands.h"
#include "store_options.h"
#include "terminal_text.h"
#include "upload_records.h"

namespace quorvane::app {
namespace {
namespace fs = std::filesystem;

struct GetOptions {
    StoreOptions store;
    std::string url, destination;
    std::int64_t rangeSize = 8 << 20;
    bool quiet = false;
};

// DEST as given; a directory (or a name ending in '/') gets the key's last name inside it.
std::string destinationFor(const std::string& given, const std::string& key) {
    auto name = fs::path(key).filename().string();
    if (given.empty()) return name;
    std::error_code ec;
    if (given.back() == '/' || fs::is_directory(given, ec)) return (fs::path(given) / name).string();
    return given;
}

// The CRC-64 and length of the bytes a partial file already holds.
std::optional<std::uint64_t> crcOfFile(const std::string& path) { return fileCrc64(path); }

class Download {
public:
    Download(const GetOptions& o, CommandOutput& out, StoreSession& store, std::string key, std::string destination)
        : o_(o), out_(out), store_(store), key_(std::move(key)), destination_(std::move(destination)),
          partial_(partialPathFor(destination_)), recordPath_(recordPathFor(destination_)),
          progressShown_(!o.store.json && !o.quiet && isatty(STDERR_FILENO)) {}

    int run() {
        const auto& bucket = store_.access().bucket;
        auto head = std::make_shared<oss::OSSHeadObjectRequest>();
        head->bucketName = bucket;
        head->objectKey = key_;
        auto headTask = store_.client().headObject(head);
        if (!waitForTask<oss::OSSHeadObjectResult>(headTask, *head)) return interrupted();
        if (auto error = headTask->error()) return failed(describeError(*error));
        const auto stored = headTask->result();
        const DownloadRecord record{bucket, key_, stored->eTag, static_cast<std::uint64_t>(stored->contentLength)};

        std::uint64_t offset = 0, crc = 0;
        std::error_code ec;
        auto earlier = readDownloadRecord(recordPath_);
        if (earlier && *earlier == record && fs::exists(partial_, ec) && fs::file_size(partial_, ec) <= record.size) {
            offset = fs::file_size(partial_, ec);
            auto partialCrc = crcOfFile(partial_);
            if (ec || !partialCrc) offset = 0;
            else crc = *partialCrc;
        }
        if (offset == 0) {
            fs::remove(partial_, ec);
            if (!writeDownloadRecord(recordPath_, record))
                return out_.setup("cannot write " + recordPath_ + " beside the destination");
        } else {
            out_.event("resuming", {{"object", objectName()}, {"downloaded", offset}, {"total", record.size}});
            out_.line("resuming " + objectName() + " at byte " + std::to_string(offset));
        }
        std::ofstream file(partial_, std::ios::binary | std::ios::app);
        if (!file) return out_.setup("cannot write " + partial_);
        out_.event("started", {{"object", objectName()}, {"file", destination_}, {"total", record.size}});

        while (offset < record.size) {
            auto request = std::make_shared<oss::OSSGetObjectRequest>();
            request->bucketName = bucket;
            request->objectKey = key_;
            const std::uint64_t last = std::min<std::uint64_t>(record.size, offset + o_.rangeSize) - 1;
            request->range = std::make_pair(offset, last);
            auto task = store_.client().getObject(request);
            if (!waitForTask<oss::OSSGetObjectResult>(task, *request)) return interrupted();
            if (auto error = task->error()) return failed(describeError(*error));
            auto range = task->result();
            if ((!record.eTag.empty() && range->eTag != record.eTag) || range->objectSize != record.size) {
                discard();
                return failed({"ObjectChanged", "the object changed while it was downloaded; run again for the new one"});
            }
            file.write(range->data.data(), static_cast<std::streamsize>(range->data.size()));
            file.flush();
            if (!file) return out_.setup("cannot write " + partial_);
            crc = oss::Crc64::update(crc, range->data.data(), range->data.size());
            offset += range->data.size();
            progress(offset, record.size);
            if (interruptRequested()) return interrupted();
        }
        file.close();
        if (progressShown_) std::fputs("\n", stderr);
        if (stored->remoteCRC64ecma && *stored->remoteCRC64ecma != crc) {
            discard();
            return failed({"InvalidCRC", "the downloaded bytes' CRC-64 " + std::to_string(crc) + " is not the stored " +
                                             std::to_string(*stored->remoteCRC64ecma) + "; the partial file is removed"});
        }
        fs::rename(partial_, destination_, ec);
        if (ec) return out_.setup("cannot move " + partial_ + " to " + destination_ + ": " + ec.message());
        fs::remove(recordPath_, ec);
        Value done{{"object", objectName()}, {"file", destination_}, {"bytes", record.size}, {"crcChecked", stored->remoteCRC64ecma.has_value()}};
        done["crc64"] = std::to_string(crc);
        out_.event("success", std::move(done));
        if (!o_.quiet)
            out_.line("downloaded " + objectName() + " -> " + printableText(destination_) + " (" +
                      std::to_string(record.size) + " bytes, CRC-64 " +
                      (stored->remoteCRC64ecma ? "checked" : "not kept by the service") + ")");
        return kExitUploaded;
    }

private:
    std::string objectName() const { return "oss://" + store_.access().bucket + "/" + key_; }

    void progress(std::uint64_t done, std::uint64_t total) {
        out_.event("progress", {{"object", objectName()}, {"downloaded", done}, {"total", total}});
        if (progressShown_)
            std::fprintf(stderr, "\r%5.1f%%  %llu of %llu bytes", total ? 100.0 * static_cast<double>(done) / static_cast<double>(total) : 100.0,
                         static_cast<unsigned long long>(done), static_cast<unsigned long long>(total));
    }

    void discard() {
        std::error_code ec;
        fs::remove(partial_, ec);
        fs::remove(recordPath_, ec);
    }

    int failed(const ErrorText& error) {
        if (progressShown_) std::fputs("\n", stderr);
        auto message = store_.redacted(error.message);
        out_.failure(objectName() + ": " + message, "failure",
                     {{"object", objectName()}, {"file", destination_}, {"code", error.code}, {"message", message}});
        return kExitSomeFailed;
    }

    int interrupted() {
        if (progressShown_) std::fputs("\n", stderr);
        out_.event("interrupted", {{"object", objectName()}, {"file", partial_}});
        if (!o_.store.json) std::cerr << "quorvane get: interrupted; the same command continues from " << partial_ << "\n";
        return kExitInterrupted;
    }

    const GetOptions& o_;
    CommandOutput& out_;
    StoreSession& store_;
    std::string key_, destination_, partial_, recordPath_;
    bool progressShown_;
};

int runGet(const GetOptions& o) {
    CommandOutput out("get", o.store.json);
    std::string problem;
    auto url = storeUrl(o.url, problem);
    if (!url) return out.usage(problem);
    if (url->key.empty() || url->key.back() == '/') return out.usage("'" + o.url + "' names no object: oss://BUCKET/KEY");
    auto destination = destinationFor(o.destination, url->key);
    std::error_code ec;
    if (destination.empty() || fs::is_directory(destination, ec))
        return out.usage("cannot write the download to '" + destination + "'");
    StoreSession store;
    bool usage = false;
    if (!store.open(o.store, url->bucket, problem, usage)) return usage ? out.usage(problem) : out.setup(problem);
    installInterruptHandler();
    return Download(o, out, store, url->key, destination).run();
}

}  // namespace

Subcommand addGetCommand(CLI::App& app) {
    auto o = std::make_shared<GetOptions>();
    CLI::App* cmd = app.add_subcommand(
        "get",
        "Download oss://BUCKET/KEY to DEST (default: the key's last name here; a directory: inside it). The bytes "
        "go to DEST.quorvane-part in ranges: Ctrl-C stops, the same command continues; the whole file's CRC-64 is "
        "checked against the stored one before it takes DEST's name.\n"
        "Exit status: 0 downloaded, 1 failed (missing object, CRC-64 mismatch, refused), 2 bad usage, 130 "
        "interrupted.");
    cmd->add_option("URL", o->url, "oss://BUCKET/KEY")->required();
    cmd->add_option("DEST", o->destination, "Where to write the object");
    cmd->add_option("--range-size", o->rangeSize, "Bytes asked for in one request")
        ->check(CLI::Range(std::int64_t{65536}, std::int64_t{1} << 30))
        ->capture_default_str();
    cmd->add_flag("-q,--quiet", o->quiet, "Print only failures and errors");
    addStoreOptions(*cmd, o->store);
    return {cmd, [o] { return runGet(*o); }};
}

}  // namespace quorvane::app
