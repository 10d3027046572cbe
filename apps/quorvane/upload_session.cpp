#include "upload_session.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>

#include "VODUpload/src/VodInfo.h"
#include "foundation/dispatch.h"
#include "oss/oss_client.h"
#include "object_store.h"
#include "terminal_text.h"
#include "upload_records.h"
#include "upload_targets.h"

namespace quorvane::app {
namespace {

volatile std::sig_atomic_t interruptFlag = 0;

void onInterrupt(int) {
    interruptFlag = 1;
    std::signal(SIGINT, SIG_DFL);  // a second Ctrl-C ends the process at once
}

constexpr int kMaxRenewals = 3;  // per file at once

}  // namespace

void installInterruptHandler() {
    interruptFlag = 0;
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
}

bool interruptRequested() { return interruptFlag != 0; }

UploadSession::UploadSession(UploadPlan plan, UploadProgressView& view, EmbeddedCloud* cloud)
    : plan_(std::move(plan)),
      view_(view),
      cloud_(cloud),
      running_(plan_.jobs.size()),
      outcomes_(plan_.jobs.size()),
      skipped_(plan_.jobs.size(), false),
      lookedUp_(plan_.jobs.size(), false),
      stored_(plan_.jobs.size()) {}

std::string UploadSession::redacted(const std::string& text) const {
    return redactSecrets(text, {plan_.secret, plan_.token});
}

std::shared_ptr<VODUploadListener> UploadSession::makeListener(std::size_t index) {
    auto listener = std::make_shared<VODUploadListener>();
    std::weak_ptr<UploadSession> weak = weak_from_this();
    listener->started = [weak, index](const auto&) {
        if (auto self = weak.lock()) self->onStarted(index);
    };
    listener->progress = [weak, index](const auto&, long uploaded, long total) {
        if (auto self = weak.lock())
            self->onProgress(index, static_cast<std::uint64_t>(std::max(0L, uploaded)),
                             static_cast<std::uint64_t>(std::max(0L, total)));
    };
    listener->retrying = [weak, index](const VODRetryNotice& notice) {
        if (auto self = weak.lock()) self->onRetry(index, notice);
    };
    listener->retryResume = [weak, index] {
        if (auto self = weak.lock()) {
            self->sawSign(index);
            self->view_.retryResume(self->plan_.jobs[index].display);
        }
    };
    listener->resumed = [weak, index](const auto&, std::uint64_t stored) {
        if (auto self = weak.lock()) self->onResumed(index, stored);
    };
    listener->restarted = [weak, index](const auto&, const std::string& why) {
        if (auto self = weak.lock()) self->view_.note(self->plan_.jobs[index].display + ": " + why);
    };
    listener->expire = [weak, index] {
        // Answered on the main thread: renewing calls back into the engine.
        foundation::dispatch::main().async([weak, index] {
            if (auto self = weak.lock()) self->onExpire(index);
        });
    };
    listener->finish = [weak, index](const auto& file, const VodUploadResult& result) {
        if (auto self = weak.lock()) self->onFinish(index, file, result);
    };
    listener->failure = [weak, index](const auto&, const std::string& code, const std::string& message) {
        if (auto self = weak.lock()) self->onFailure(index, code, message);
    };
    return listener;
}

StoreAccess storeAccess(const UploadPlan& plan) {
    return {plan.endpoint, plan.bucket,        plan.keyId,         plan.secret,           plan.token,
            plan.expire,   plan.caFile,        plan.storageRegion, plan.signatureVersion, plan.idleTimeout,
            plan.http};
}

void UploadSession::startLookup() {
    std::vector<std::string> keys;
    for (std::size_t i = 0; i < plan_.jobs.size(); ++i) {
        if (plan_.jobs[i].vod) continue;
        lookupJobs_.push_back(i);
        keys.push_back(plan_.jobs[i].object);
    }
    if (keys.empty()) return;
    // A window per upload slot, at least 8: the answers for the next files are in before their slots free.
    lookup_ = StoredObjectLookup::start(storeAccess(plan_), std::move(keys), std::max(8, plan_.parallel * 2),
                                        [weak = weak_from_this()](std::size_t key, const StoredObjectAnswer& answer) {
                                            if (auto self = weak.lock())
                                                self->onStoredAnswer(self->lookupJobs_[key], answer);
                                        });
}

// A lookup the service did not answer costs the file one of its retries; the upload goes on, as a
// lookup that found nothing does.
void UploadSession::onStoredAnswer(std::size_t index, const StoredObjectAnswer& answer) {
    {
        std::lock_guard lock(mutex_);
        lookedUp_[index] = true;
        stored_[index] = answer.stored;
    }
    int count;
    if (answer.trouble && countRetry(index, count))
        view_.retry(plan_.jobs[index].display, count, plan_.maxRetries, redacted(*answer.trouble), 0.0);
    foundation::dispatch::main().async([weak = weak_from_this()] {
        if (auto self = weak.lock()) self->launchMore();
    });
}

// A file already stored under its key with the same size and CRC-64 is not sent again.
bool UploadSession::skipIfStored(std::size_t index) {
    const auto& job = plan_.jobs[index];
    std::optional<StoredObject> stored;
    {
        std::lock_guard lock(mutex_);
        stored = stored_[index];
    }
    if (!stored || stored->size != job.size || !stored->crc64) return false;
    auto local = fileCrc64(job.path);
    if (!local || *local != *stored->crc64) return false;
    skipped_[index] = true;
    {
        std::lock_guard lock(mutex_);
        outcomes_[index] = FileOutcome{job.display, true, std::nullopt, plan_.bucket, job.object, job.size, {}, {}};
        running_[index].ended = true;
    }
    view_.skipped(job.display, plan_.bucket, job.object, job.size);
    return true;
}

// The engine's multipart upload needs at least one byte; an empty file is one PutObject.
void UploadSession::uploadEmptyFile(std::size_t index) {
    const auto& job = plan_.jobs[index];
    view_.started(job.display, UploadProgressView::Clock::now());
    if (!readsEmpty(job.path)) {  // it has content now: an empty object would not be the file
        end(index, FileOutcome{job.display, false, std::nullopt, plan_.bucket, job.object, 0, "FileChanged",
                               "the file was empty when the upload was planned and has content now"});
        return;
    }
    std::string code;
    auto problem = putEmptyObject(storeAccess(plan_), job.object, code);
    if (problem.empty())
        end(index, FileOutcome{job.display, true, std::nullopt, plan_.bucket, job.object, 0, {}, {}});
    else
        end(index, FileOutcome{job.display, false, std::nullopt, plan_.bucket, job.object, 0, code, redacted(problem)});
}

bool UploadSession::prepare(std::size_t index) {
    const auto& job = plan_.jobs[index];
    auto& slot = running_[index];
    // Every client gets the services from the plan; nothing is read from process-wide settings.
    VODServiceConfig config;
    config.vodBaseUrl = plan_.vodBaseUrl;
    config.logServiceEndpoint = plan_.logServiceEndpoint;
    config.resumeCache = plan_.resumeCache;
    config.httpClient = plan_.http;
    config.signatureVersion = plan_.vodSignature;
    config.idleTimeoutSeconds = plan_.idleTimeout;
    slot.client = VODUploadClient::create(std::move(config));
    // One options value: the client's own defaults, with what the plan says.
    VODUploadOptions options = slot.client->options();
    options.timeoutIntervalForRequest = plan_.idleTimeout;
    options.recordDirectoryPath = plan_.recordDir;
    options.uploadPartSize = plan_.partSize;
    options.singleRequestUpload = true;  // a file no larger than a part: one request, not three
    options.maxRetryCount = plan_.maxRetries;
    if (!plan_.region.empty()) options.region = plan_.region;
    options.storageSignatureVersion =
        plan_.signatureVersion == 1 ? oss::OSSSignatureVersion::V1 : oss::OSSSignatureVersion::V4;
    options.storageRegion = plan_.storageRegion;
    options.caFile = plan_.caFile;
    slot.client->setOptions(std::move(options));
    auto listener = makeListener(index);
    bool ready = plan_.token.empty()
                     ? slot.client->init(plan_.keyId, plan_.secret, listener)
                     : slot.client->init(plan_.keyId, plan_.secret, plan_.token, plan_.expire, listener);
    bool queued = false;
    if (ready && job.vod) {
        auto info = std::make_shared<VodInfo>();
        info->title = plan_.title.value_or(std::filesystem::path(job.path).stem().string());
        queued = slot.client->addFile(job.path, info);
    } else if (ready) {
        queued = slot.client->addFile(job.path, plan_.endpoint, plan_.bucket, job.object);
    }
    if (!queued) {
        end(index, FileOutcome{job.display, false, std::nullopt, std::nullopt, std::nullopt, 0, "Refused",
                               "the upload engine refused the file or the credentials"});
        return false;
    }
    slot.entry = slot.client->listFiles().back();
    return true;
}

bool UploadSession::launch(std::size_t index) {
    auto& slot = running_[index];
    if (!slot.client && !prepare(index)) return false;
    sawSign(index);
    slot.client->start();
    return true;
}

// Keeps `parallel` files running while there are files left (main thread).
void UploadSession::launchMore() {
    if (interruptRequested()) return;
    auto runningNow = [this] {
        std::lock_guard lock(mutex_);
        if (fatal_) return plan_.parallel;
        // Files before next_ have been launched; the one at next_ may hold a client prepared, not started.
        return static_cast<int>(std::count_if(running_.begin(), running_.begin() + static_cast<std::ptrdiff_t>(next_),
                                              [](const Running& r) { return r.client && !r.ended; }));
    };
    while (next_ < plan_.jobs.size() && runningNow() < plan_.parallel) {
        const std::size_t index = next_;
        const auto& job = plan_.jobs[index];
        bool ended, answered;
        {
            std::lock_guard lock(mutex_);
            ended = running_[index].ended;
            answered = job.vod || lookedUp_[index];
        }
        if (!ended && !answered) {  // called again when the answer is in
            {
                std::lock_guard lock(mutex_);
                if (!running_[index].lastSign) running_[index].lastSign = std::chrono::steady_clock::now();
            }
            if (job.size > 0 && !running_[index].client) prepare(index);
            return;
        }
        ++next_;
        if (ended || (!job.vod && skipIfStored(index))) {
            running_[index].client.reset();  // prepared for nothing: never started, no event of its own
            continue;
        }
        if (!job.vod && job.size == 0)
            uploadEmptyFile(index);
        else
            launch(index);
        if (interruptRequested()) return;
    }
}

void UploadSession::onStarted(std::size_t index) {
    sawSign(index);
    view_.started(plan_.jobs[index].display, UploadProgressView::Clock::now());
}

void UploadSession::sawSign(std::size_t index, std::chrono::steady_clock::time_point now) {
    std::lock_guard lock(mutex_);
    running_[index].lastSign = now;
}

void UploadSession::watchSilence() {
    if (interruptRequested() || allEnded()) return;
    const auto now = std::chrono::steady_clock::now();
    std::vector<std::pair<std::size_t, int>> silent;
    {
        std::lock_guard lock(mutex_);
        for (std::size_t i = 0; i < running_.size(); ++i) {
            const auto& slot = running_[i];
            if (slot.ended || !slot.lastSign || now - *slot.lastSign < UploadProgressView::kSilenceShownAfter)
                continue;
            silent.emplace_back(i, static_cast<int>(std::chrono::duration_cast<std::chrono::seconds>(
                                       now - *slot.lastSign).count()));
        }
    }
    for (const auto& [index, seconds] : silent) view_.waiting(plan_.jobs[index].display, seconds);
    foundation::after(1.0, foundation::dispatch::main(), [weak = weak_from_this()] {
        if (auto self = weak.lock()) self->watchSilence();
    });
}

// Said by the upload once it knows which parts the service holds, so the count is what a resume
// really skips, for this key on this service only.
void UploadSession::onResumed(std::size_t index, std::uint64_t stored) {
    {
        std::lock_guard lock(mutex_);
        auto& slot = running_[index];
        if (slot.moved || slot.resumedFrom) return;
        slot.resumedFrom = stored;
    }
    view_.resuming(plan_.jobs[index].display, stored, plan_.jobs[index].size);
}

void UploadSession::onProgress(std::size_t index, std::uint64_t uploaded, std::uint64_t total) {
    const auto now = UploadProgressView::Clock::now();
    {
        std::lock_guard lock(mutex_);
        running_[index].moved = true;
        running_[index].lastSign = now;
    }
    view_.progress(plan_.jobs[index].display, uploaded, total, now);
}

// The engine counts its retries afresh once bytes move again, so a link that breaks every few hundred
// kilobytes would be retried for ever; the command bounds the retries of one file in all. A request the
// object-storage client sends again counts too: against a silent service each one costs an idle
// time-out, and the user gave the number of those the file may cost.
void UploadSession::onRetry(std::size_t index, const VODRetryNotice& notice) {
    const double wait = std::chrono::duration<double>(notice.wait).count();
    sawSign(index);
    int count;
    if (!countRetry(index, count)) return;
    const auto& display = plan_.jobs[index].display;
    if (notice.request) return view_.requestRetry(display, count, plan_.maxRetries, redacted(notice.cause), wait);
    view_.retry(display, count, plan_.maxRetries, redacted(notice.cause), wait);
}

bool UploadSession::countRetry(std::size_t index, int& count) {
    {
        std::lock_guard lock(mutex_);
        if (running_[index].ended) return false;
        count = ++running_[index].retries;
    }
    if (count <= plan_.maxRetries) return true;
    const auto& job = plan_.jobs[index];
    end(index, FileOutcome{job.display, false, std::nullopt, plan_.bucket, job.object, 0, "RetryLimit",
                           "gave up after " + std::to_string(plan_.maxRetries) + " retries (--retries)"});
    return false;
}

void UploadSession::onFinish(std::size_t index, const std::shared_ptr<UploadFileInfo>& file,
                             const VodUploadResult& result) {
    const auto& job = plan_.jobs[index];
    end(index, FileOutcome{job.display, true, result.videoId, file->bucket, file->object, job.size, {}, {}});
}

void UploadSession::onFailure(std::size_t index, const std::string& code, const std::string& message) {
    const auto& job = plan_.jobs[index];
    auto& entry = running_[index].entry;
    end(index, FileOutcome{job.display, false, std::nullopt, entry ? entry->bucket : std::nullopt,
                           entry ? entry->object : std::nullopt, 0, redacted(code), redacted(message)});
}

// Records how the file ended (the first word counts), lets its client go and starts the next file.
void UploadSession::end(std::size_t index, FileOutcome outcome) {
    {
        std::lock_guard lock(mutex_);
        if (running_[index].ended) return;
        running_[index].ended = true;
    }
    // The run ends once every outcome is in, so an outcome goes in only after the view has shown it:
    // otherwise the summary could be printed, and the process gone, before this file's last event.
    view_.finished(outcome);
    {
        std::lock_guard lock(mutex_);
        outcomes_[index] = outcome;
    }
    std::weak_ptr<UploadSession> weak = weak_from_this();
    foundation::dispatch::main().async([weak, index, success = outcome.success] {
        auto self = weak.lock();
        if (!self) return;
        if (auto client = self->running_[index].client) {
            // A failed file waits in its engine; a file given up on is still running there.
            if (!success && client->state() == VODClientState::Started) client->stop();
        }
        self->launchMore();
    });
}

void UploadSession::onExpire(std::size_t index) {
    auto client = running_[index].client;
    if (cloud_ && client && renewals_ < kMaxRenewals * plan_.parallel) {
        ++renewals_;
        auto sts = cloud_->issueSts();
        view_.expire("the credentials expired; continuing with new ones from the local cloud");
        if (client->resumeWithToken(sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken, sts.Expiration)) return;
    }
    {
        std::lock_guard lock(mutex_);
        if (fatal_) return;
        fatal_ = true;
    }
    view_.expire("the service refused the credentials (invalid or expired)");
    for (std::size_t i = 0; i < plan_.jobs.size(); ++i) {
        const auto& job = plan_.jobs[i];
        end(i, FileOutcome{job.display, false, std::nullopt, plan_.bucket, job.object, 0, "CredentialsRefused",
                           "the service refused the credentials"});
    }
}

bool UploadSession::allEnded() const {
    std::lock_guard lock(mutex_);
    return std::all_of(outcomes_.begin(), outcomes_.end(), [](const auto& o) { return o.has_value(); });
}

bool UploadSession::waitUntilDone() {
    auto done = [this] { return interruptRequested() || allEnded(); };
    auto& loop = foundation::MainLoop::instance();
    while (!loop.runUntil(done, std::chrono::hours(1))) {
    }
    return !interruptRequested();
}

void UploadSession::pauseForResume() {
    lookup_.reset();
    for (auto& slot : running_)
        if (slot.client && slot.client->state() == VODClientState::Started) slot.client->pause();
    view_.interrupted(plan_.resumeHint);
    // The cancelled part requests return while the command waits for its HTTP client to go idle.
}

int UploadSession::finish(std::chrono::steady_clock::time_point began) {
    RunSummary summary;
    for (std::size_t i = 0; i < plan_.jobs.size(); ++i) {
        std::optional<FileOutcome> outcome;
        {
            std::lock_guard lock(mutex_);
            outcome = outcomes_[i];
        }
        bool ok = outcome && outcome->success;
        // What the local cloud stored is checked against the file: size and CRC-64.
        if (ok && cloud_ && outcome->bucket && outcome->object) {
            auto check = cloud_->verify(*outcome->bucket, *outcome->object, plan_.jobs[i].path);
            view_.verified(outcome->file, check.size, check.crc64, check.ok);
            ok = check.ok;
        }
        if (!ok) {
            ++summary.failed;
            continue;
        }
        summary.stored += plan_.jobs[i].size;
        if (skipped_[i]) {
            ++summary.skipped;
            continue;
        }
        ++summary.uploaded;
        std::uint64_t resumedFrom;
        {
            std::lock_guard lock(mutex_);
            resumedFrom = running_[i].resumedFrom.value_or(0);
        }
        summary.sent += plan_.jobs[i].size - std::min(plan_.jobs[i].size, resumedFrom);
    }
    summary.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    view_.summary(summary);
    return summary.failed == 0 ? kExitUploaded : kExitSomeFailed;
}

int UploadSession::run() {
    const auto began = std::chrono::steady_clock::now();
    installInterruptHandler();
    std::uint64_t bytes = 0;
    for (const auto& job : plan_.jobs) bytes += job.size;
    view_.setPlanned(static_cast<int>(plan_.jobs.size()), bytes);
    startLookup();
    foundation::dispatch::main().async([weak = weak_from_this()] {
        if (auto self = weak.lock()) {
            self->launchMore();
            self->watchSilence();
        }
    });
    if (!waitUntilDone()) {
        pauseForResume();
        return kExitInterrupted;
    }
    return finish(began);
}

void UploadSession::settle(std::chrono::milliseconds grace) {
    const auto deadline = std::chrono::steady_clock::now() + grace;
    for (auto& slot : running_) {
        if (!slot.client) continue;
        if (slot.client->state() == VODClientState::Started) slot.client->stop();
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (!slot.client->waitUntilSettled(std::max(left, std::chrono::milliseconds(0)))) return;
    }
}

}  // namespace quorvane::app
