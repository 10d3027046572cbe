#include <algorithm>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

#include "emulator/storage.h"
#include "foundation/crc64.h"

namespace quorvane::emulator {

void Blob::add(Piece piece) {
    size += piece.size;
    pieces.push_back(std::move(piece));
}

std::optional<std::string> Blob::readAll() const {
    BlobReader reader(*this);
    if (!reader.ok()) return std::nullopt;
    std::string out;
    out.reserve(size);
    while (out.size() < size) {
        auto chunk = reader.read(out.size(), size - out.size());
        if (chunk.empty()) return std::nullopt;
        out.append(chunk);
    }
    return out;
}

BlobReader::BlobReader(const Blob& blob) : blob_(blob) {
    std::uint64_t start = 0;
    for (const auto& piece : blob_.pieces) {
        starts_.push_back(start);
        start += piece.size;
        int fd = piece.memory ? -1 : ::open(piece.path.c_str(), O_RDONLY | O_CLOEXEC);
        if (!piece.memory && fd < 0) ok_ = false;
        fds_.push_back(fd);
    }
}

BlobReader::~BlobReader() {
    for (int fd : fds_)
        if (fd >= 0) ::close(fd);
}

std::string_view BlobReader::read(std::uint64_t offset, std::size_t max) {
    if (!ok_ || offset >= blob_.size || max == 0) return {};
    auto i = static_cast<std::size_t>(std::upper_bound(starts_.begin(), starts_.end(), offset) - starts_.begin() - 1);
    const auto& piece = blob_.pieces[i];
    auto within = offset - starts_[i];
    auto want = static_cast<std::size_t>(std::min<std::uint64_t>(max, piece.size - within));
    if (piece.memory) return std::string_view(*piece.memory).substr(static_cast<std::size_t>(within), want);
    constexpr std::size_t kChunk = 256 * 1024;
    want = std::min(want, kChunk);
    buffer_.resize(kChunk);
    ssize_t got;
    do got = ::pread(fds_[i], buffer_.data(), want, static_cast<off_t>(within));
    while (got < 0 && errno == EINTR);
    if (got <= 0) return {};
    return {buffer_.data(), static_cast<std::size_t>(got)};
}

BlobWriter::BlobWriter(std::string tempPath, std::uint64_t reserve) : temp_(std::move(tempPath)) {
    if (temp_.empty()) {
        // Content-Length is a client's claim: cap the up-front reservation.
        buffer_.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(reserve, 64ULL << 20)));
        return;
    }
    file_ = std::fopen(temp_.c_str(), "wb");
    failed_ = file_ == nullptr;
}

BlobWriter::~BlobWriter() {
    if (file_) std::fclose(file_);
    if (!committed_ && !temp_.empty()) {
        std::error_code ec;
        std::filesystem::remove(temp_, ec);
    }
}

bool BlobWriter::write(const char* data, std::size_t size) {
    if (failed_) return false;
    md5_.update(data, size);
    crc_ = foundation::Crc64::update(crc_, data, size);
    size_ += size;
    if (file_) {
        failed_ = std::fwrite(data, 1, size, file_) != size;
    } else {
        buffer_.append(data, size);
    }
    return !failed_;
}

std::string BlobWriter::md5Raw() {
    if (!digest_) digest_ = md5_.finishRaw();
    return *digest_;
}

std::optional<Blob> BlobWriter::commit(const std::string& finalPath) {
    Blob blob;
    if (temp_.empty()) {
        committed_ = true;
        blob.add({std::make_shared<const std::string>(std::move(buffer_)), {}, size_});
        return blob;
    }
    // Buffered bytes reach the disk only now: a full disk may show first at this flush or the close.
    if (file_ && (std::fflush(file_) != 0 || std::ferror(file_))) failed_ = true;
    if (file_ && std::fclose(file_) != 0) failed_ = true;
    file_ = nullptr;
    if (failed_) return std::nullopt;  // the destructor removes the temporary file
    std::error_code ec;
    std::filesystem::rename(temp_, finalPath, ec);
    if (ec) return failed_ = true, std::nullopt;
    committed_ = true;
    blob.add({nullptr, finalPath, size_});
    return blob;
}

}  // namespace quorvane::emulator
