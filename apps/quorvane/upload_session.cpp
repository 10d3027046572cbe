#include "upload_session.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>

#include "VODUpload/src/VodInfo.h"
#include "foundation/dispatch.h"
#include "upload_records.h"

namespace quorvane::app {
namespace {

volatile std::sig_atomic_t interruptFlag = 0;

void onInterrupt(int) {
    interruptFlag = 1;
    std::signal(SIGINT, SIG_DFL);  // a second Ctrl-C ends the process at once
}

constexpr int kMaxRenewals = 3;

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
    : plan_(std::move(plan)), view_(view), cloud_(cloud), outcomes_(plan_.jobs.size()) {}

std::shared_ptr<VODUploadListener> UploadSession::makeListener() {
    auto listener = std::make_shared<VODUploadListener>();
    std::weak_ptr<UploadSession> weak = weak_from_this();
    listener->started = [weak](const auto& file) {
        if (auto self = weak.lock()) self->onStarted(file);
    };
    listener->progress = [weak](const auto& file, long uploaded, long total) {
        auto self = weak.lock();
        int index = self ? self->indexOf(file) : -1;
        if (index >= 0)
            self->view_.progress(self->plan_.jobs[index].display, static_cast<std::uint64_t>(uploaded),
                                 static_cast<std::uint64_t>(total), UploadProgressView::Clock::now());
    };
    listener->retry = [weak] {
        if (auto self = weak.lock()) self->view_.retry();
    };
    listener->retryResume = [weak] {
        if (auto self = weak.lock()) self->view_.retryResume();
    };
    listener->expire = [weak] {
        // Answered on the main thread: renewing calls back into the engine.
        foundation::dispatch::main().async([weak] {
            if (auto self = weak.lock()) self->onExpire();
        });
    };
    listener->finish = [weak](const auto& file, const VodUploadResult& result) {
        if (auto self = weak.lock()) self->onFinish(file, result);
    };
    listener->failure = [weak](const auto& file, const std::string& code, const std::string& message) {
        if (auto self = weak.lock()) self->onFailure(file, code, message);
    };
    return listener;
}

bool UploadSession::queueFiles() {
    for (const auto& job : plan_.jobs) {
        bool queued;
        if (job.vod) {
            auto info = std::make_shared<VodInfo>();
            info->title = plan_.title.value_or(std::filesystem::path(job.path).stem().string());
            queued = client_->addFile(job.path, info);
        } else {
            std::string object = std::filesystem::path(job.path).filename().string();
            queued = client_->addFile(job.path, plan_.endpoint, plan_.bucket, object);
        }
        if (!queued) {
            view_.note("the upload engine refused " + job.display);
            return false;
        }
        entries_.push_back(client_->listFiles().back());
        // The engine enlarges parts so that a file never needs more than 4999 of them.
        auto partSize = std::max<std::int64_t>(plan_.partSize, static_cast<std::int64_t>(job.size / 4999));
        recorded_.push_back(recordedUploadBytes(plan_.recordDir, job.path, partSize));
    }
    return true;
}

int UploadSession::indexOf(const std::shared_ptr<UploadFileInfo>& file) const {
    for (std::size_t i = 0; i < entries_.size(); ++i)
        if (entries_[i] == file) return static_cast<int>(i);
    return -1;
}

void UploadSession::onStarted(const std::shared_ptr<UploadFileInfo>& file) {
    int index = indexOf(file);
    if (index < 0) return;
    const auto& job = plan_.jobs[index];
    view_.started(job.display, UploadProgressView::Clock::now());
    if (recorded_[index]) view_.resuming(job.display, *recorded_[index], job.size);
}

void UploadSession::onFinish(const std::shared_ptr<UploadFileInfo>& file, const VodUploadResult& result) {
    int index = indexOf(file);
    if (index < 0) return;
    FileOutcome outcome{plan_.jobs[index].display, true, result.videoId, file->bucket, file->object,
                        plan_.jobs[index].size, {}, {}};
    {
        std::lock_guard lock(mutex_);
        outcomes_[index] = outcome;
    }
    view_.finished(outcome);
}

void UploadSession::onFailure(const std::shared_ptr<UploadFileInfo>& file, const std::string& code,
                              const std::string& message) {
    int index = indexOf(file);
    if (index < 0) return;
    FileOutcome outcome{plan_.jobs[index].display, false, client_->curVideoId(), file->bucket, file->object, 0,
                        code, message};
    {
        std::lock_guard lock(mutex_);
        outcomes_[index] = outcome;
    }
    view_.finished(outcome);
    // The engine waits on a failed file; the command goes on with the rest of the queue.
    std::weak_ptr<UploadSession> weak = weak_from_this();
    foundation::dispatch::main().async([weak, file] {
        if (auto self = weak.lock()) self->continueAfterFailure(file);
    });
}

void UploadSession::continueAfterFailure(std::shared_ptr<UploadFileInfo>) {
    // The engine marks a file Failure before it tells the listener, so the queue skips it now.
    if (client_->state() == VODClientState::Started) client_->next();
}

void UploadSession::onExpire() {
    if (cloud_ && renewals_ < kMaxRenewals) {
        ++renewals_;
        auto sts = cloud_->issueSts();
        view_.expire("the credentials expired; continuing with new ones from the local cloud");
        if (client_->resumeWithToken(sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken, sts.Expiration)) return;
    }
    view_.expire("the service refused the credentials (invalid or expired)");
    std::vector<FileOutcome> refused;
    {
        std::lock_guard lock(mutex_);
        fatal_ = true;
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            if (outcomes_[i] || entries_[i]->state == UploadFileState::Success) continue;
            outcomes_[i] = FileOutcome{plan_.jobs[i].display, false, std::nullopt, entries_[i]->bucket,
                                       entries_[i]->object, 0, "CredentialsRefused",
                                       "the service refused the credentials"};
            refused.push_back(*outcomes_[i]);
        }
    }
    for (const auto& outcome : refused) view_.finished(outcome);
}

bool UploadSession::waitUntilDone() {
    auto done = [this] {
        if (interruptRequested()) return true;
        std::lock_guard lock(mutex_);
        return fatal_ || client_->state() == VODClientState::Finished;
    };
    auto& loop = foundation::MainLoop::instance();
    while (!loop.runUntil(done, std::chrono::hours(1))) {
    }
    return !interruptRequested();
}

void UploadSession::pauseForResume() {
    if (client_->state() == VODClientState::Started) client_->pause();
    view_.interrupted(plan_.resumeHint);
    // Let the cancelled part requests return before the process goes.
    foundation::MainLoop::instance().runUntil([] { return false; }, std::chrono::milliseconds(300));
}

int UploadSession::finish(std::chrono::steady_clock::time_point began) {
    int uploaded = 0, failed = 0;
    std::uint64_t bytes = 0;
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
            ++failed;
            continue;
        }
        ++uploaded;
        bytes += outcome->bytes;
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    view_.summary(uploaded, failed, bytes, seconds);
    return failed == 0 ? kExitUploaded : kExitSomeFailed;
}

int UploadSession::run() {
    const auto began = std::chrono::steady_clock::now();
    client_ = VODUploadClient::create();
    client_->setRecordDirectoryPath(plan_.recordDir);
    client_->setUploadPartSize(plan_.partSize);
    client_->setMaxRetryCount(plan_.maxRetries);
    client_->setRegion(plan_.region);
    auto listener = makeListener();
    bool ready = plan_.token.empty() ? client_->init(plan_.keyId, plan_.secret, listener)
                                     : client_->init(plan_.keyId, plan_.secret, plan_.token, plan_.expire, listener);
    if (!ready) {
        view_.note("the upload engine refused the credentials (key id and secret must not be empty)");
        return kExitUsage;
    }
    if (!queueFiles()) return kExitSomeFailed;
    installInterruptHandler();
    foundation::dispatch::main().async([client = client_] { client->start(); });
    if (!waitUntilDone()) {
        pauseForResume();
        return kExitInterrupted;
    }
    return finish(began);
}

}  // namespace quorvane::app
