// CloudEmulator: snapshots of what arrived and what is stored.
#include "emulator/emulator_impl.h"

namespace quorvane::emulator {

std::optional<std::string> RecordedRequest::header(const std::string& name) const {
    for (const auto& [k, v] : headers)
        if (iequals(k, name)) return v;
    return std::nullopt;
}

namespace {
template <class T>
std::vector<T> snapshot(const CloudEmulator::Impl& impl, const std::vector<T>& items) {
    std::lock_guard lock(impl.mutex);
    return items;
}
}  // namespace

std::vector<RecordedRequest> CloudEmulator::requests() const { return snapshot(*impl_, impl_->requests); }

std::vector<RecordedRequest> CloudEmulator::requests(const std::string& operation) const {
    auto all = requests();
    std::erase_if(all, [&](const RecordedRequest& r) { return r.operation != operation; });
    return all;
}

std::vector<ObjectInfo> CloudEmulator::objects() const { return impl_->storage.objects(); }

std::optional<ObjectInfo> CloudEmulator::object(const std::string& bucket, const std::string& key) const {
    auto found = impl_->storage.object(bucket, key);
    if (!found) return std::nullopt;
    return found->first;
}

std::optional<std::string> CloudEmulator::objectBytes(const std::string& bucket, const std::string& key) const {
    auto found = impl_->storage.object(bucket, key);
    if (!found) return std::nullopt;
    return found->second.readAll();
}

std::vector<UploadInfo> CloudEmulator::uploads() const { return impl_->storage.uploads(); }

std::optional<UploadInfo> CloudEmulator::upload(const std::string& uploadId) const {
    auto found = impl_->storage.upload(uploadId);
    if (!found) return std::nullopt;
    return found->info;
}

std::uint64_t CloudEmulator::uploadPartBytesReceived() const { return impl_->uploadPartBytes; }
std::vector<VodVideo> CloudEmulator::videos() const { return snapshot(*impl_, impl_->videos); }
std::vector<VodImage> CloudEmulator::images() const { return snapshot(*impl_, impl_->images); }
std::vector<ProgressReport> CloudEmulator::progressReports() const { return snapshot(*impl_, impl_->reports); }
std::vector<LogEvent> CloudEmulator::logEvents() const { return snapshot(*impl_, impl_->logEvents); }
std::vector<EnterpriseCall> CloudEmulator::enterpriseCalls() const { return snapshot(*impl_, impl_->enterpriseCalls); }
std::vector<HostUpload> CloudEmulator::hostUploads() const { return snapshot(*impl_, impl_->hostUploads); }

}  // namespace quorvane::emulator
