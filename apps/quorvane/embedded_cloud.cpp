#include "embedded_cloud.h"

#include <filesystem>
#include <fstream>
#include <optional>

#include "upload_records.h"

namespace quorvane::app {
namespace {

std::optional<int> lastPort(const std::filesystem::path& file) {
    std::ifstream in(file);
    int port = 0;
    if (in >> port && port > 0 && port < 65536) return port;
    return std::nullopt;
}

}  // namespace

EmbeddedCloud::EmbeddedCloud(std::string storageDir) : storageDir_(std::move(storageDir)) {}

EmbeddedCloud::~EmbeddedCloud() { stop(); }

bool EmbeddedCloud::start(std::string& error) {
    std::error_code ec;
    std::filesystem::create_directories(storageDir_, ec);
    if (ec) {
        error = "cannot create the local cloud's storage " + storageDir_ + ": " + ec.message();
        return false;
    }
    emulator::EmulatorOptions options;
    options.storageDir = storageDir_;
    options.threads = 8;  // one client: a few keep-alive connections
    // The port of the last run first: upload records name the service they were made with, so a
    // local cloud on a new port would make every interrupted upload start again from nothing.
    const auto portFile = std::filesystem::path(storageDir_) / "port";
    options.port = lastPort(portFile).value_or(0);
    cloud_ = std::make_unique<emulator::CloudEmulator>(options);
    if (!cloud_->start() && options.port != 0) {
        options.port = 0;  // taken by now: any free one
        cloud_ = std::make_unique<emulator::CloudEmulator>(options);
        cloud_->start();
    }
    if (!cloud_->running()) {
        error = "the local cloud could not start on " + storageDir_;
        cloud_.reset();
        return false;
    }
    std::ofstream(portFile, std::ios::trunc) << cloud_->port() << "\n";
    return true;
}

void EmbeddedCloud::stop() {
    if (cloud_) cloud_->stop();
}

std::string EmbeddedCloud::endpoint() const { return cloud_ ? cloud_->endpoint() : std::string(); }
std::string EmbeddedCloud::bucket() const { return cloud_ ? cloud_->options().bucket : std::string(); }
std::string EmbeddedCloud::region() const { return cloud_ ? cloud_->options().region : std::string(); }

emulator::StsCredentials EmbeddedCloud::issueSts() { return cloud_->issueSts(); }

EmbeddedCloud::Check EmbeddedCloud::verify(const std::string& bucket, const std::string& key,
                                           const std::string& localPath) const {
    Check check;
    auto stored = cloud_ ? cloud_->object(bucket, key) : std::nullopt;
    if (!stored) return check;
    check.found = true;
    check.size = stored->size;
    check.crc64 = stored->crc64;
    std::error_code ec;
    auto localSize = std::filesystem::file_size(localPath, ec);
    auto localCrc = fileCrc64(localPath);
    check.ok = !ec && localSize == stored->size && localCrc && *localCrc == stored->crc64;
    return check;
}

}  // namespace quorvane::app
