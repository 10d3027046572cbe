#include "stdin_upload.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "oss/crc64.h"
#include "store_commands.h"
#include "store_options.h"
#include "terminal_text.h"

namespace quorvane::app {
namespace {

constexpr const char* kShownName = "(standard input)";

// Fills `buffer` up to `size` bytes from `fd`; false on a read error.
bool readPart(int fd, std::string& buffer, std::size_t size, bool& ended) {
    buffer.resize(size);
    std::size_t filled = 0;
    while (filled < size) {
        ssize_t n = ::read(fd, buffer.data() + filled, size - filled);
        if (n < 0 && errno == EINTR) {
            if (interruptRequested()) break;
            continue;
        }
        if (n < 0) return false;
        if (n == 0) {
            ended = true;
            break;
        }
        filled += static_cast<std::size_t>(n);
    }
    buffer.resize(filled);
    return true;
}

class StdinUpload {
public:
    StdinUpload(const StoreAccess& access, std::string key, UploadProgressView& view)
        : access_(access), key_(std::move(key)), view_(view), client_(makeStoreClient(access)) {}

    int run(int fd, std::size_t partSize) {
        const auto began = std::chrono::steady_clock::now();
        view_.started(kShownName, began);
        std::string part;
        bool ended = false;
        if (!readPart(fd, part, partSize, ended)) return failed("ReadError", std::string("cannot read standard input: ") + std::strerror(errno));
        if (interruptRequested()) return interrupted();
        auto error = ended ? putWhole(part) : multipart(fd, part, partSize, ended);
        if (interruptRequested() && !completed_) return interrupted();
        if (error) return failed(describeError(*error));
        view_.finished(FileOutcome{kShownName, true, std::nullopt, access_.bucket, key_, sent_, {}, {}});
        RunSummary summary;
        summary.uploaded = 1;
        summary.sent = summary.stored = sent_;
        summary.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
        view_.summary(summary);
        return kExitUploaded;
    }

private:
    std::optional<Error> putWhole(const std::string& bytes) {
        auto request = std::make_shared<oss::OSSPutObjectRequest>();
        request->bucketName = access_.bucket;
        request->objectKey = key_;
        request->uploadingData = bytes;
        auto task = client_->putObject(request);
        if (!waitForTask<oss::OSSPutObjectResult>(task, *request)) return std::nullopt;  // interrupted: checked by run
        if (auto error = task->error()) return error;
        completed_ = true;
        crc_ = oss::Crc64::update(0, bytes.data(), bytes.size());
        sent_ = bytes.size();
        view_.progress(kShownName, sent_, sent_, std::chrono::steady_clock::now());
        return std::nullopt;
    }

    std::optional<Error> multipart(int fd, std::string& part, std::size_t partSize, bool& ended) {
        auto init = std::make_shared<oss::OSSInitMultipartUploadRequest>();
        init->bucketName = access_.bucket;
        init->objectKey = key_;
        auto initTask = client_->multipartUploadInit(init);
        if (!waitForTask<oss::OSSInitMultipartUploadResult>(initTask, *init)) return std::nullopt;
        if (auto error = initTask->error()) return error;
        uploadId_ = initTask->result()->uploadId;
        std::vector<oss::OSSPartInfo> parts;
        while (!part.empty()) {
            if (parts.size() == 10000)
                return makeClientError(oss::OSSClientErrorCodeInvalidArgument,
                                       "standard input is longer than 10000 parts: give a larger --part-size");
            auto request = std::make_shared<oss::OSSUploadPartRequest>();
            request->bucketName = access_.bucket;
            request->objectKey = key_;
            request->uploadId = uploadId_;
            request->partNumber = static_cast<int>(parts.size()) + 1;
            request->uploadPartData = std::move(part);
            const std::uint64_t length = request->uploadPartData->size();
            crc_ = oss::Crc64::update(crc_, request->uploadPartData->data(), length);
            auto task = client_->uploadPart(request);
            if (!waitForTask<oss::OSSUploadPartResult>(task, *request)) return std::nullopt;
            if (auto error = task->error()) return error;
            parts.push_back({request->partNumber, task->result()->eTag, static_cast<std::int64_t>(length),
                             task->result()->localCRC64ecma.value_or(0)});
            sent_ += length;
            view_.progress(kShownName, sent_, sent_, std::chrono::steady_clock::now());
            part.clear();
            if (ended || interruptRequested()) break;
            if (!readPart(fd, part, partSize, ended))
                return makeClientError(oss::OSSClientErrorCodeFileCantRead,
                                       std::string("cannot read standard input: ") + std::strerror(errno));
            if (interruptRequested()) return std::nullopt;
        }
        if (interruptRequested()) return std::nullopt;
        auto complete = std::make_shared<oss::OSSCompleteMultipartUploadRequest>();
        complete->bucketName = access_.bucket;
        complete->objectKey = key_;
        complete->uploadId = uploadId_;
        complete->partInfos = std::move(parts);
        auto task = client_->completeMultipartUpload(complete);
        if (!waitForTask<oss::OSSCompleteMultipartUploadResult>(task, *complete)) return std::nullopt;
        if (auto error = task->error()) return error;
        completed_ = true;
        uploadId_.clear();
        if (auto stored = task->result()->remoteCRC64ecma; stored && *stored != crc_)
            return makeClientError(oss::OSSClientErrorCodeInvalidCRC,
                                   "the stored object's CRC-64 " + std::to_string(*stored) +
                                       " is not that of the bytes read, " + std::to_string(crc_));
        return std::nullopt;
    }

    // An upload of standard input cannot be continued: its parts are not kept.
    void abandon() {
        if (uploadId_.empty()) return;
        auto request = std::make_shared<oss::OSSAbortMultipartUploadRequest>();
        request->bucketName = access_.bucket;
        request->objectKey = key_;
        request->uploadId = uploadId_;
        client_->abortMultipartUpload(request)->waitFor(std::chrono::seconds(60));
        uploadId_.clear();
    }

    int failed(const ErrorText& error) { return failed(error.code, error.message); }
    int failed(const std::string& code, const std::string& message) {
        abandon();
        auto shown = printableText(redactSecrets(message, {access_.secret, access_.token}));
        view_.finished(FileOutcome{kShownName, false, std::nullopt, access_.bucket, key_, 0, code, shown});
        RunSummary summary;
        summary.failed = 1;
        summary.sent = sent_;
        view_.summary(summary);
        return kExitSomeFailed;
    }

    int interrupted() {
        abandon();
        view_.interrupted("standard input cannot be read again: run the producer and the upload again");
        return kExitInterrupted;
    }

    const StoreAccess& access_;
    std::string key_;
    UploadProgressView& view_;
    std::unique_ptr<oss::OSSClient> client_;
    std::string uploadId_;
    std::uint64_t crc_ = 0, sent_ = 0;
    bool completed_ = false;  // the object is stored: a late Ctrl-C changes nothing
};

}  // namespace

int uploadStandardInput(const StoreAccess& access, const std::string& key, std::int64_t partSize, int fd,
                        UploadProgressView& view) {
    installInterruptHandler();
    return StdinUpload(access, key, view).run(fd, static_cast<std::size_t>(partSize));
}

}  // namespace quorvane::app
