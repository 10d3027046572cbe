// The resumable multipart upload: check the file, pick up the record of an earlier run, check it
// against the service's part list, send the missing parts (several at once, streamed from disk),
// complete, and check the whole object's CRC-64 against the parts' without reading the file again.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <mutex>
#include <thread>

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

std::string unquote(std::string s) {
    s.erase(std::remove(s.begin(), s.end(), '"'), s.end());
    std::transform(s.begin(), s.end(), s.begin(), ::toupper);
    return s;
}

bool isServerCode(const Error& e, long long status, const char* code) {
    return e.domain == kOSSServerErrorDomain && e.code == -status && foundation::stringAt(e.userInfo, "Code") == code;
}

class ResumableUpload {
public:
    ResumableUpload(OSSClient::Impl& client, const OSSResumableUploadRequest& request, OSSCancellationToken& token)
        : c_(client), r_(request), token_(token) {}

    Out run() {
        if (auto e = validate()) return Out::failure(*e);
        if (auto e = openRecord()) return Out::failure(*e);
        if (auto e = establishUploadId()) return finish(*e);
        if (auto e = sendMissingParts()) return finish(*e);
        return complete();
    }

private:
    std::optional<Error> validate() {
        if (r_.bucketName.empty()) return makeClientError(OSSClientErrorCodeInvalidArgument, "The bucket name is empty");
        if (r_.objectKey.empty()) return makeClientError(OSSClientErrorCodeInvalidArgument, "The object key is empty");
        Error error;
        auto file = inspectLocalFile(r_.uploadingFileURL, &error);
        if (!file) return error;
        file_ = *file;
        if (file_.size == 0)
            return makeClientError(OSSClientErrorCodeInvalidArgument, "The file " + file_.path + " is empty");
        if (r_.partSize < kMinPartSize)
            return makeClientError(OSSClientErrorCodeInvalidArgument, "The part size must be at least 102400 bytes");
        auto parts = (file_.size + r_.partSize - 1) / static_cast<std::uint64_t>(r_.partSize);
        if (parts > kMaxParts)
            return makeClientError(OSSClientErrorCodeInvalidArgument,
                                   "The file needs more than 10000 parts of " + std::to_string(r_.partSize) + " bytes");
        partCount_ = static_cast<int>(parts);
        if (token_.isCancelled()) return cancelledError();
        return std::nullopt;
    }

    static Error cancelledError() {
        return fromTransportError(Error(foundation::kHttpErrorDomain, foundation::kHttpErrorCancelled));
    }

    std::uint64_t offsetOf(int part) const { return static_cast<std::uint64_t>(part - 1) * r_.partSize; }
    std::uint64_t lengthOf(int part) const {
        return std::min<std::uint64_t>(r_.partSize, file_.size - offsetOf(part));
    }

    // Loads the record of an earlier run; one that is unreadable or made for another file state is
    // removed so the upload starts cleanly.
    std::optional<Error> openRecord() {
        if (r_.recordDirectoryPath.empty()) return std::nullopt;
        std::error_code ec;
        std::filesystem::create_directories(r_.recordDirectoryPath, ec);
        if (!std::filesystem::is_directory(r_.recordDirectoryPath))
            return makeClientError(OSSClientErrorCodeFileCantWrite,
                                   "Can't use the record directory " + r_.recordDirectoryPath);
        recordPath_ = (std::filesystem::path(r_.recordDirectoryPath) /
                       checkpointFileName(r_.bucketName, r_.objectKey, file_.path)).string();
        auto text = foundation::readFile(recordPath_);
        if (!text) return std::nullopt;
        auto record = parseCheckpoint(*text);
        if (!record) {
            OSSLog::logDebug("Discarding an unreadable upload record " + recordPath_);
        } else if (record->bucket != r_.bucketName || record->objectKey != r_.objectKey ||
                   record->filePath != file_.path || record->fileSize != file_.size ||
                   record->fileMtimeNs != file_.mtimeNs || record->partSize != r_.partSize) {
            OSSLog::logDebug("Discarding the upload record of a changed file " + file_.path);
            abandon(*record);
        } else if (!r_.uploadId.empty() && record->uploadId != r_.uploadId) {
            OSSLog::logDebug("Discarding the upload record of another upload id");
            abandon(*record);
        } else {
            record_ = std::move(record);
            return std::nullopt;
        }
        std::filesystem::remove(recordPath_, ec);
        return std::nullopt;
    }

    // An upload whose record is dropped would otherwise stay open on the service, holding its parts,
    // for ever. Best effort: a failure here changes nothing for this run.
    void abandon(const OSSUploadCheckpoint& record) {
        if (record.uploadId.empty() || record.uploadId == r_.uploadId) return;
        OSSAbortMultipartUploadRequest abort;
        abort.bucketName = record.bucket;
        abort.objectKey = record.objectKey;
        abort.uploadId = record.uploadId;
        doAbort(c_, abort, token_);
    }

    std::optional<Error> initiate() {
        OSSInitMultipartUploadRequest init;
        init.bucketName = r_.bucketName;
        init.objectKey = r_.objectKey;
        init.contentType = r_.contentType;
        auto answer = doInitMultipart(c_, init, token_);
        if (answer.error) return answer.error;
        uploadId_ = answer.result->uploadId;
        record_.reset();
        return saveRecord(true);
    }

    // The caller's upload id, or the record's, or a new one; then the parts already stored.
    std::optional<Error> establishUploadId() {
        bool fromRecord = false;
        if (!r_.uploadId.empty() && r_.uploadIdIsNew && !record_) {
            uploadId_ = r_.uploadId;  // nothing can be stored under an id initiated a moment ago
            return saveRecord(true);
        }
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
        auto listed = doListParts(c_, list, token_);
        if (listed.error) {
            if (fromRecord && isServerCode(*listed.error, 404, "NoSuchUpload")) return initiate();
            return listed.error;
        }
        for (const auto& part : listed.result->parts) adoptStoredPart(part);
        return saveRecord(true);
    }

    // Trusts a part the service holds when the record vouches for it (same ETag and CRC) or when
    // its CRC equals that of the same range of the file.
    void adoptStoredPart(const OSSPartInfo& stored) {
        if (stored.partNum < 1 || stored.partNum > partCount_) return;
        if (static_cast<std::uint64_t>(stored.size) != lengthOf(stored.partNum)) return;
        if (record_) {
            auto it = record_->parts.find(stored.partNum);
            if (it != record_->parts.end() && unquote(it->second.eTag) == unquote(stored.eTag) &&
                (stored.crc64 == 0 || stored.crc64 == it->second.crc64)) {
                done_[stored.partNum] = it->second;
                return;
            }
        }
        if (stored.crc64 == 0) return;
        auto local = crc64OfFileRange(file_.path, offsetOf(stored.partNum), lengthOf(stored.partNum));
        if (local && *local == stored.crc64) done_[stored.partNum] = stored;
    }

    std::optional<Error> saveRecord(bool force) {
        if (recordPath_.empty()) return std::nullopt;
        // A periodic save never waits for another thread's: that one writes the newer parts too,
        // and a part sender held up behind a file sync is a slot with nothing on the wire.
        std::unique_lock lock(recordMutex_, std::defer_lock);
        if (force) lock.lock();
        else if (!lock.try_lock()) return std::nullopt;
        auto now = std::chrono::steady_clock::now();
        if (!force && now - lastSave_ < kCheckpointInterval) return std::nullopt;
        OSSUploadCheckpoint record{r_.bucketName, r_.objectKey, file_.path, uploadId_, file_.size,
                                   file_.mtimeNs, r_.partSize, {}};
        {
            std::lock_guard partsLock(partsMutex_);
            record.parts = done_;
        }
        lastSave_ = now;
        if (!foundation::writeFileAtomically(recordPath_, serializeCheckpoint(record)))
            return makeClientError(OSSClientErrorCodeFileCantWrite, "Can't write the upload record " + recordPath_);
        return std::nullopt;
    }

    void removeRecord() {
        if (recordPath_.empty()) return;
        std::error_code ec;
        std::filesystem::remove(recordPath_, ec);
    }

    std::optional<Error> sendPart(int number, OSSProgressTracker& progress) {
        OSSUploadPartRequest part;
        part.bucketName = r_.bucketName;
        part.objectKey = r_.objectKey;
        part.uploadId = uploadId_;
        part.partNumber = number;
        part.uploadPartFileURL = file_.path;
        part.uploadPartFileOffset = offsetOf(number);
        part.uploadPartLength = lengthOf(number);
        part.uploadPartProgress = [&progress, number](std::int64_t, std::int64_t sent, std::int64_t) {
            progress.update(number, static_cast<std::uint64_t>(sent));
        };
        auto answer = doUploadPart(c_, part, token_);
        if (answer.error) return answer.error;
        {
            std::lock_guard lock(partsMutex_);
            done_[number] = OSSPartInfo{number, answer.result->eTag, static_cast<std::int64_t>(part.uploadPartLength),
                                        answer.result->localCRC64ecma.value_or(0)};
        }
        progress.finish(number, part.uploadPartLength);
        if (auto e = saveRecord(false)) OSSLog::logDebug(e->description);
        return std::nullopt;
    }

    std::optional<Error> sendMissingParts() {
        std::vector<int> missing;
        std::uint64_t stored = 0;
        for (int n = 1; n <= partCount_; ++n) {
            if (done_.count(n)) stored += lengthOf(n);
            else missing.push_back(n);
        }
        OSSProgressTracker progress(r_.uploadProgress, file_.size, stored);
        std::atomic<std::size_t> next{0};
        std::atomic<bool> failed{false};
        std::optional<Error> firstError;
        std::mutex errorMutex;
        auto worker = [&] {
            while (!failed && !token_.isCancelled()) {
                auto index = next++;
                if (index >= missing.size()) return;
                if (auto e = sendPart(missing[index], progress)) {
                    std::lock_guard lock(errorMutex);
                    if (!firstError) firstError = std::move(e);
                    failed = true;
                }
            }
        };
        auto extra = std::min<std::size_t>(missing.size(), static_cast<std::size_t>(c_.conf.maxConcurrentParts));
        std::vector<std::thread> helpers;
        for (std::size_t i = 1; i < extra; ++i) helpers.emplace_back(worker);
        worker();
        for (auto& t : helpers) t.join();
        if (token_.isCancelled()) return cancelledError();
        return firstError;
    }

    std::uint64_t combinedCrc() const {
        std::uint64_t crc = 0;
        for (const auto& [n, part] : done_) crc = Crc64::combine(crc, part.crc64, static_cast<std::uint64_t>(part.size));
        return crc;
    }

    Out complete() {
        OSSCompleteMultipartUploadRequest request;
        request.bucketName = r_.bucketName;
        request.objectKey = r_.objectKey;
        request.uploadId = uploadId_;
        request.completeMetaHeader = r_.completeMetaHeader;
        for (const auto& [n, part] : done_) request.partInfos.push_back(part);
        auto crc = combinedCrc();
        auto answer = doComplete(c_, request, token_);
        auto result = std::make_shared<OSSResumableUploadResult>();
        if (answer.error) {
            // A lost answer to a Complete that did happen: the object is there with our bytes.
            if (!isServerCode(*answer.error, 404, "NoSuchUpload") || !objectMatches(crc, *result)) return finish(*answer.error);
        } else {
            static_cast<OSSCompleteMultipartUploadResult&>(*result) = *answer.result;
        }
        removeRecord();
        if (auto bad = checkCrc("uploaded object", crc, result->remoteCRC64ecma)) return Out::failure(*bad);
        result->uploadId = uploadId_;
        result->localCRC64ecma = crc;
        return Out{result, std::nullopt};
    }

    bool objectMatches(std::uint64_t crc, OSSResumableUploadResult& result) {
        OSSHeadObjectRequest head;
        head.bucketName = r_.bucketName;
        head.objectKey = r_.objectKey;
        auto answer = doHeadObject(c_, head, token_);
        if (answer.error || static_cast<std::uint64_t>(answer.result->contentLength) != file_.size ||
            answer.result->remoteCRC64ecma != crc)
            return false;
        static_cast<OSSResult&>(result) = *answer.result;
        result.eTag = answer.result->eTag;
        return true;
    }

    // Ends a run that did not complete. A cancel aborts the upload when asked to (not when the
    // client is going away: that is a crash as far as the upload is concerned).
    Out finish(Error error) {
        if (isCancelledError(error) && r_.deleteUploadIdOnCancelling && !c_.shuttingDown && !uploadId_.empty()) {
            OSSAbortMultipartUploadRequest abort;
            abort.bucketName = r_.bucketName;
            abort.objectKey = r_.objectKey;
            abort.uploadId = uploadId_;
            OSSCancellationToken fresh;
            doAbort(c_, abort, fresh);
            removeRecord();
        } else if (isServerCode(error, 404, "NoSuchUpload")) {
            removeRecord();
        } else if (!uploadId_.empty()) {
            saveRecord(true);
        }
        return Out::failure(std::move(error));
    }

    OSSClient::Impl& c_;
    const OSSResumableUploadRequest& r_;
    OSSCancellationToken& token_;
    OSSLocalFile file_;
    int partCount_ = 0;
    std::string recordPath_;
    std::optional<OSSUploadCheckpoint> record_;
    std::string uploadId_;
    std::mutex partsMutex_;
    std::map<int, OSSPartInfo> done_;
    std::mutex recordMutex_;
    std::chrono::steady_clock::time_point lastSave_{};
};

}  // namespace

OSSOutcome<OSSResumableUploadResult> doResumableUpload(OSSClient::Impl& c, const OSSResumableUploadRequest& r,
                                                       OSSCancellationToken& token) {
    return ResumableUpload(c, r, token).run();
}

}  // namespace quorvane::oss
