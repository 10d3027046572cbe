// The resumable multipart upload: check the file, pick up the record of an earlier run, check it
// against the service's part list and the file, send the missing parts (several at once, streamed
// from disk), complete, and check the whole object's CRC-64 against the parts' without reading the
// file again. Every step runs on the operation's queue; parts in flight report back there.
#include <algorithm>
#include <chrono>
#include <filesystem>

#include <sys/stat.h>

#include <cerrno>

#include "foundation/temp_files.h"
#include "oss/crc64.h"
#include "oss/oss_body.h"
#include "oss/oss_checkpoint.h"
#include "oss/oss_client_impl.h"
#include "oss/oss_log.h"
#include "oss/oss_progress.h"

namespace quorvane::oss {
namespace {

constexpr std::int64_t kMinPartSize = 100 * 1024;
constexpr int kMaxParts = 10000;
constexpr auto kCheckpointInterval = std::chrono::milliseconds(500);

using Out = OSSOutcome<OSSResumableUploadResult>;

bool isServerCode(const Error& e, long long status, const char* code) {
    return e.domain == kOSSServerErrorDomain && e.code == -status && foundation::stringAt(e.userInfo, "Code") == code;
}

std::string normalizedETag(std::string s) {
    s.erase(std::remove(s.begin(), s.end(), '"'), s.end());
    std::transform(s.begin(), s.end(), s.begin(), ::toupper);
    return s;
}

class ResumableUpload : public std::enable_shared_from_this<ResumableUpload> {
public:
    ResumableUpload(OSSOperationContext context, std::shared_ptr<const OSSResumableUploadRequest> request,
                    OSSDone<OSSResumableUploadResult> done)
        : context_(std::move(context)), request_(std::move(request)), r_(*request_), done_(std::move(done)) {}

    void run() {
        if (context_.client->endpoint) endpoint_ = checkpointEndpoint(*context_.client->endpoint);
        if (auto e = validate()) return deliver(Out::failure(*e));
        if (changed_) {
            // The caller's upload, and any record of it, hold bytes of the file as it was.
            uploadId_ = r_.uploadId;
            if (!r_.recordDirectoryPath.empty()) recordPath_ = recordPathFor();
            return failChangedFile();
        }
        openRecord();
    }

private:
    // ---- the file and its record ----

    std::optional<Error> validate() {
        if (r_.bucketName.empty()) return makeClientError(OSSClientErrorCodeInvalidArgument, "The bucket name is empty");
        if (!isValidBucketName(r_.bucketName))
            return makeClientError(OSSClientErrorCodeInvalidArgument,
                                   "The bucket name \"" + r_.bucketName + "\" is not valid");
        if (r_.objectKey.empty()) return makeClientError(OSSClientErrorCodeInvalidArgument, "The object key is empty");
        Error error;
        auto file = inspectLocalFile(r_.uploadingFileURL, &error, r_.expectedFileState ? &*r_.expectedFileState : nullptr);
        if (!file) return error;
        file_ = *file;
        if (r_.expectedFileState && *r_.expectedFileState != file_.state()) {
            changed_ = true;
            return std::nullopt;
        }
        if (file_.size == 0)
            return makeClientError(OSSClientErrorCodeInvalidArgument, "The file " + file_.path + " is empty");
        if (r_.partSize < kMinPartSize)
            return makeClientError(OSSClientErrorCodeInvalidArgument, "The part size must be at least 102400 bytes");
        auto parts = (file_.size + r_.partSize - 1) / static_cast<std::uint64_t>(r_.partSize);
        if (parts > kMaxParts)
            return makeClientError(OSSClientErrorCodeInvalidArgument,
                                   "The file needs more than 10000 parts of " + std::to_string(r_.partSize) + " bytes");
        partCount_ = static_cast<int>(parts);
        if (context_.token->isCancelled()) return makeCancelledError();
        return std::nullopt;
    }

    std::uint64_t offsetOf(int part) const { return static_cast<std::uint64_t>(part - 1) * r_.partSize; }
    std::uint64_t lengthOf(int part) const { return std::min<std::uint64_t>(r_.partSize, file_.size - offsetOf(part)); }

    // Loads the record of an earlier run. One that is unreadable or made for another file state is
    // removed so the upload starts cleanly, and its upload is aborted: nothing would ever continue it.
    void openRecord() {
        if (r_.recordDirectoryPath.empty()) return establishUploadId();
        std::error_code ec;
        std::filesystem::create_directories(r_.recordDirectoryPath, ec);
        if (!std::filesystem::is_directory(r_.recordDirectoryPath))
            return deliver(Out::failure(makeClientError(OSSClientErrorCodeFileCantWrite,
                                                        "Can't use the record directory " + r_.recordDirectoryPath)));
        recordPath_ = recordPathFor();
        collectRecordsOfGoneFiles();
        auto file = readRecordFile(recordPath_);
        if (file.kind == RecordFile::Kind::Missing) return abortOrphans();
        auto record = file.kind == RecordFile::Kind::Read ? parseCheckpoint(file.text) : std::nullopt;
        std::optional<OSSUploadCheckpoint> dropped;
        if (!record) {
            OSSLog::logDebug("Discarding an unreadable upload record " + recordPath_ +
                             (file.why.empty() ? std::string() : " (" + file.why + ")"));
            // What it still names is aborted like any dropped record's upload.
            if (file.kind == RecordFile::Kind::Read) dropped = parseCheckpointUpload(file.text);
        } else if (!recordFits(*record, endpoint_, r_.bucketName, r_.objectKey, file_.path, file_.state(), r_.partSize)) {
            OSSLog::logDebug("Discarding the upload record of a changed file " + file_.path);
            dropped = std::move(record);
        } else if (!r_.uploadId.empty() && record->uploadId != r_.uploadId) {
            OSSLog::logDebug("Discarding the upload record of another upload id");
            dropped = std::move(record);
        } else {
            record_ = std::move(record);
            return abortOrphans();
        }
        std::filesystem::remove(recordPath_, ec);
        if (dropped && !dropped->uploadId.empty() && dropped->uploadId != r_.uploadId && dropped->endpoint == endpoint_)
            orphans_.push_back(std::move(*dropped));
        abortOrphans();
    }

    // Records whose file is gone (deleted after an interrupted run) would keep their uploads open for
    // ever: nothing can continue them. Those of this service are dropped here and their uploads
    // aborted; a record of another service waits for a run against it. A bounded look per run.
    void collectRecordsOfGoneFiles() {
        constexpr int kMaxLooked = 256;
        int looked = 0;
        std::error_code ec;
        for (std::filesystem::directory_iterator it(r_.recordDirectoryPath, ec), end; !ec && it != end && looked < kMaxLooked;
             it.increment(ec), ++looked) {
            const auto path = it->path().string();
            if (path == recordPath_ || it->path().extension() != ".json") continue;
            auto file = readRecordFile(path);
            if (file.kind != RecordFile::Kind::Read) continue;
            auto record = parseCheckpointUpload(file.text);
            if (!record || record->endpoint != endpoint_ || record->filePath.empty()) continue;
            struct stat st {};
            if (::lstat(record->filePath.c_str(), &st) == 0 || errno != ENOENT) continue;
            OSSLog::logDebug("Dropping the upload record of a file that is gone: " + record->filePath);
            std::error_code removed;
            std::filesystem::remove(path, removed);
            orphans_.push_back(std::move(*record));
        }
    }

    // Best effort, one at a time: a failure here changes nothing for this run.
    void abortOrphans() {
        if (orphans_.empty()) return establishUploadId();
        auto next = std::move(orphans_.back());
        orphans_.pop_back();
        OSSLog::logDebug("Aborting the upload " + next.uploadId + " of a dropped record");
        abort(next.bucket, next.objectKey, next.uploadId, context_,
              [self = shared_from_this()] { self->abortOrphans(); });
    }

    std::string recordPathFor() const {
        return (std::filesystem::path(r_.recordDirectoryPath) /
                checkpointFileName(endpoint_, r_.bucketName, r_.objectKey, file_.path)).string();
    }

    std::optional<Error> saveRecord(bool force) {
        if (recordPath_.empty()) return std::nullopt;
        auto now = std::chrono::steady_clock::now();
        if (!force && now - lastSave_ < kCheckpointInterval) return std::nullopt;
        lastSave_ = now;
        OSSUploadCheckpoint record{endpoint_, r_.bucketName, r_.objectKey, file_.path, uploadId_, file_.state(), r_.partSize,
                                   parts_};
        if (!foundation::writeFileAtomically(recordPath_, serializeCheckpoint(record)))
            return makeClientError(OSSClientErrorCodeFileCantWrite, "Can't write the upload record " + recordPath_);
        return std::nullopt;
    }

    void removeRecord() {
        if (recordPath_.empty()) return;
        std::error_code ec;
        std::filesystem::remove(recordPath_, ec);
    }

    // ---- the upload id ----

    // The caller's upload id, or the record's, or a new one; then the parts already stored.
    void establishUploadId() {
        if (!r_.uploadId.empty() && r_.uploadIdIsNew && !record_) {
            uploadId_ = r_.uploadId;  // nothing can be stored under an id initiated a moment ago
            ownsUploadId_ = true;
            return recordThenSend();
        }
        bool fromRecord = false;
        if (!r_.uploadId.empty()) {
            uploadId_ = r_.uploadId;
        } else if (record_) {
            uploadId_ = record_->uploadId;
            fromRecord = true;
        } else {
            return initiate();
        }
        OSSListPartsRequest list;
        list.bucketName = r_.bucketName;
        list.objectKey = r_.objectKey;
        list.uploadId = uploadId_;
        startListParts(context_, list, [self = shared_from_this(), fromRecord](OSSOutcome<OSSListPartsResult> listed) {
            if (listed.error) {
                if (fromRecord && isServerCode(*listed.error, 404, "NoSuchUpload")) return self->initiate();
                return self->finish(*listed.error);
            }
            for (const auto& part : listed.result->parts) self->adoptStoredPart(part);
            self->recordThenSend();
        });
    }

    void initiate() {
        OSSInitMultipartUploadRequest init;
        init.bucketName = r_.bucketName;
        init.objectKey = r_.objectKey;
        init.contentType = r_.contentType;
        startInitMultipart(context_, init, [self = shared_from_this()](OSSOutcome<OSSInitMultipartUploadResult> answer) {
            if (answer.error) return self->finish(*answer.error);
            self->uploadId_ = answer.result->uploadId;
            self->ownsUploadId_ = true;
            self->record_.reset();
            self->parts_.clear();
            self->recordThenSend();
        });
    }

    // Without a record of it, an upload this run started would stay open on the service if the run
    // ended here: abort it rather than leave it.
    void recordThenSend() {
        auto error = saveRecord(true);
        if (!error) return sendMissingParts();
        if (!ownsUploadId_) return finish(*error);
        abort(r_.bucketName, r_.objectKey, uploadId_, context_, [self = shared_from_this(), error = *error] {
            self->uploadId_.clear();
            self->deliver(Out::failure(error));
        });
    }

    // Trusts a part the service holds only when its CRC-64 (the service's, or the record's for the
    // same ETag) is that of the same range of the file as it is now: a file rewritten in place since
    // the record was made must not end up as a mix of old and new bytes.
    void adoptStoredPart(const OSSPartInfo& stored) {
        if (stored.partNum < 1 || stored.partNum > partCount_) return;
        if (static_cast<std::uint64_t>(stored.size) != lengthOf(stored.partNum)) return;
        std::uint64_t expected = stored.crc64;
        if (expected == 0 && record_) {
            auto it = record_->parts.find(stored.partNum);
            if (it != record_->parts.end() && normalizedETag(it->second.eTag) == normalizedETag(stored.eTag))
                expected = it->second.crc64;
        }
        if (expected == 0) return;
        auto local = crc64OfFileRange(file_.path, offsetOf(stored.partNum), lengthOf(stored.partNum));
        if (!local || *local != expected) {
            OSSLog::logDebug("Part " + std::to_string(stored.partNum) + " differs from the file: sending it again");
            return;
        }
        parts_[stored.partNum] = OSSPartInfo{stored.partNum, stored.eTag, stored.size, *local};
    }

    // ---- the parts ----

    // Whether the file is still as it was when this run first looked at it (a stat, no read).
    bool fileUnchanged() const {
        auto now = currentFileState(file_.path);
        return now && *now == file_.state();
    }

    bool fileIsGone() const {
        struct stat st {};
        return ::lstat(file_.path.c_str(), &st) != 0 && errno == ENOENT;
    }

    // Parts already sent hold bytes the file no longer has, or may not: the upload can never be
    // completed, so it is aborted with its record rather than left for a resume to finish.
    void failChangedFile() {
        OSSLog::logDebug("The file " + file_.path + " changed while it was being uploaded: aborting its upload");
        removeRecord();
        auto error = fileChangedError(file_.path);
        if (uploadId_.empty()) return deliver(Out::failure(error));
        OSSOperationContext uncancelled = context_;
        uncancelled.token = std::make_shared<OSSCancellationToken>();
        abort(r_.bucketName, r_.objectKey, uploadId_, uncancelled, [self = shared_from_this(), error] {
            self->deliver(Out::failure(error));
        });
    }

    void sendMissingParts() {
        if (!fileUnchanged()) return failChangedFile();
        partsKnown_ = true;
        std::uint64_t stored = 0;
        for (int n = 1; n <= partCount_; ++n) {
            if (parts_.count(n)) stored += lengthOf(n);
            else missing_.push_back(n);
        }
        if (stored > 0 && r_.uploadResumed) r_.uploadResumed(stored, file_.size);
        progress_ = std::make_shared<OSSProgressTracker>(r_.uploadProgress, file_.size, stored);
        launchParts();
    }

    // Keeps up to maxConcurrentParts parts in flight; when the last one is back, goes on or ends.
    void launchParts() {
        const int slots = context_.client->conf.maxConcurrentParts;
        while (inFlight_ < slots && nextMissing_ < missing_.size() && !partError_ && !changed_ &&
               !context_.token->isCancelled())
            sendPart(missing_[nextMissing_++]);
        if (inFlight_ > 0) return;
        if (context_.token->isCancelled()) return finish(makeCancelledError());
        // Also after a failed part: a retry must not resume an upload that holds the old bytes.
        if (changed_ || !fileUnchanged()) return failChangedFile();
        if (partError_) return finish(*partError_);
        complete();
    }

    void sendPart(int number) {
        OSSUploadPartRequest part;
        part.bucketName = r_.bucketName;
        part.objectKey = r_.objectKey;
        part.uploadId = uploadId_;
        part.partNumber = number;
        part.uploadPartFileURL = file_.path;
        part.uploadPartFileOffset = offsetOf(number);
        part.uploadPartLength = lengthOf(number);
        part.uploadPartProgress = [progress = progress_, number](std::int64_t, std::int64_t sent, std::int64_t) {
            progress->update(number, static_cast<std::uint64_t>(sent));
        };
        ++inFlight_;
        startUploadPart(context_, part, [self = shared_from_this(), number](OSSOutcome<OSSUploadPartResult> answer) {
            self->partDone(number, std::move(answer));
        });
    }

    void partDone(int number, OSSOutcome<OSSUploadPartResult> answer) {
        --inFlight_;
        if (answer.error) {
            if (!partError_) partError_ = std::move(answer.error);
        } else {
            const auto length = lengthOf(number);
            parts_[number] = OSSPartInfo{number, answer.result->eTag, static_cast<std::int64_t>(length),
                                        answer.result->localCRC64ecma.value_or(0)};
            progress_->finish(number, length);
            if (auto e = saveRecord(false)) OSSLog::logDebug(e->description);
        }
        // A stat per part: a change stops the upload now rather than after sending the whole file.
        if (!changed_ && !fileUnchanged()) changed_ = true;
        launchParts();
    }

    // ---- the end ----

    std::uint64_t combinedCrc() const {
        std::uint64_t crc = 0;
        for (const auto& [n, part] : parts_) crc = Crc64::combine(crc, part.crc64, static_cast<std::uint64_t>(part.size));
        return crc;
    }

    void complete() {
        OSSCompleteMultipartUploadRequest request;
        request.bucketName = r_.bucketName;
        request.objectKey = r_.objectKey;
        request.uploadId = uploadId_;
        request.completeMetaHeader = r_.completeMetaHeader;
        for (const auto& [n, part] : parts_) request.partInfos.push_back(part);
        startComplete(context_, request, [self = shared_from_this()](OSSOutcome<OSSCompleteMultipartUploadResult> answer) {
            auto result = std::make_shared<OSSResumableUploadResult>();
            if (!answer.error) {
                static_cast<OSSCompleteMultipartUploadResult&>(*result) = *answer.result;
                return self->completed(result);
            }
            if (!isServerCode(*answer.error, 404, "NoSuchUpload")) return self->finish(*answer.error);
            // A lost answer to a Complete that did happen: the object is there with our bytes.
            self->checkStoredObject(result, *answer.error);
        });
    }

    void checkStoredObject(std::shared_ptr<OSSResumableUploadResult> result, Error completeError) {
        OSSHeadObjectRequest head;
        head.bucketName = r_.bucketName;
        head.objectKey = r_.objectKey;
        startHeadObject(context_, head, [self = shared_from_this(), result,
                                         completeError = std::move(completeError)](OSSOutcome<OSSHeadObjectResult> answer) {
            if (answer.error || static_cast<std::uint64_t>(answer.result->contentLength) != self->file_.size ||
                answer.result->remoteCRC64ecma != self->combinedCrc())
                return self->finish(completeError);
            static_cast<OSSResult&>(*result) = *answer.result;
            result->eTag = answer.result->eTag;
            self->completed(result);
        });
    }

    void completed(std::shared_ptr<OSSResumableUploadResult> result) {
        removeRecord();
        const auto crc = combinedCrc();
        if (auto bad = checkCrc("uploaded object", crc, result->remoteCRC64ecma)) return deliver(Out::failure(*bad));
        result->uploadId = uploadId_;
        result->localCRC64ecma = crc;
        deliver(Out{result, std::nullopt});
    }

    // Ends a run that did not complete. A cancel aborts the upload when asked to (not when the
    // client is going away: that is a crash as far as the upload is concerned).
    void finish(Error error) {
        if (isCancelledError(error) && r_.deleteUploadIdOnCancelling && !context_.client->shuttingDown &&
            !uploadId_.empty()) {
            OSSOperationContext uncancelled = context_;
            uncancelled.token = std::make_shared<OSSCancellationToken>();
            return abort(r_.bucketName, r_.objectKey, uploadId_, uncancelled, [self = shared_from_this(), error] {
                self->removeRecord();
                self->deliver(Out::failure(error));
            });
        }
        // A file deleted meanwhile can never be continued: its upload goes too, not only this run.
        if (!isCancelledError(error) && !uploadId_.empty() && fileIsGone()) {
            OSSLog::logDebug("The file " + file_.path + " is gone: aborting its upload " + uploadId_);
            removeRecord();
            return abort(r_.bucketName, r_.objectKey, uploadId_, context_, [self = shared_from_this(), error] {
                self->deliver(Out::failure(error));
            });
        }
        // Until the parts are known (a failed listing) the record on disk is still the best word on them.
        if (isServerCode(error, 404, "NoSuchUpload")) removeRecord();
        else if (!uploadId_.empty() && partsKnown_) saveRecord(true);
        deliver(Out::failure(std::move(error)));
    }

    static void abort(const std::string& bucket, const std::string& key, const std::string& uploadId,
                      const OSSOperationContext& context, std::function<void()> then) {
        OSSAbortMultipartUploadRequest request;
        request.bucketName = bucket;
        request.objectKey = key;
        request.uploadId = uploadId;
        startAbort(context, request, [then = std::move(then)](OSSOutcome<OSSAbortMultipartUploadResult>) { then(); });
    }

    void deliver(Out outcome) {
        auto done = std::move(done_);
        if (done) done(std::move(outcome));
    }

    OSSOperationContext context_;
    std::shared_ptr<const OSSResumableUploadRequest> request_;
    const OSSResumableUploadRequest& r_;
    OSSDone<OSSResumableUploadResult> done_;
    OSSLocalFile file_;
    int partCount_ = 0;
    std::string recordPath_;
    std::optional<OSSUploadCheckpoint> record_;
    std::string uploadId_;
    bool ownsUploadId_ = false;  // initiated for this run: nothing else knows of it yet
    std::map<int, OSSPartInfo> parts_;  // stored and checked, by number
    std::chrono::steady_clock::time_point lastSave_{};
    std::shared_ptr<OSSProgressTracker> progress_;
    std::vector<int> missing_;
    std::size_t nextMissing_ = 0;
    int inFlight_ = 0;
    std::optional<Error> partError_;
    bool changed_ = false;  // the file changed since this run first looked at it
    bool partsKnown_ = false;  // parts_ holds what the service has, checked against the file
    std::string endpoint_;     // the service, as records name it
    std::vector<OSSUploadCheckpoint> orphans_;  // uploads of dropped records, to abort
};

}  // namespace

void startResumableUpload(const OSSOperationContext& context, std::shared_ptr<const OSSResumableUploadRequest> request,
                          OSSDone<OSSResumableUploadResult> done) {
    std::make_shared<ResumableUpload>(context, std::move(request), std::move(done))->run();
}

}  // namespace quorvane::oss
