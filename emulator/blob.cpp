#include <algorithm>
#include <filesystem>
#include <fstream>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "emulator/storage.h"

namespace quorvane::emulator {

std::optional<std::string> Blob::readAll() const {
    if (memory) return *memory;
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::string out(size, '\0');
    in.read(out.data(), static_cast<std::streamsize>(size));
    if (static_cast<std::uint64_t>(in.gcount()) != size) return std::nullopt;
    return out;
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
    if (digests_) {
        md5_.update(data, size);
        crc_ = crc64(data, size, crc_);
    }
    size_ += size;
    if (file_) {
        failed_ = std::fwrite(data, 1, size, file_) != size;
    } else {
        buffer_.append(data, size);
    }
    return !failed_;
}

// Copies a stored file into ours inside the kernel: completing a large multipart upload then costs
// no pass of its bytes through this process. False (nothing written) when the kernel cannot.
bool BlobWriter::copyInKernel(const Blob& blob) {
    if (!file_ || digests_ || blob.size == 0 || std::fflush(file_) != 0) return false;
    int in = ::open(blob.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) return false;
    int out = ::fileno(file_);
    std::uint64_t copied = 0;
    while (copied < blob.size) {
        ssize_t n = ::copy_file_range(in, nullptr, out, nullptr, blob.size - copied, 0);
        if (n <= 0) break;
        copied += static_cast<std::uint64_t>(n);
    }
    ::close(in);
    if (copied == blob.size) {
        size_ += copied;
        return true;
    }
    // Undo a partial copy so the plain path starts from the same place.
    if (::ftruncate(out, static_cast<off_t>(size_)) != 0 || std::fseek(file_, static_cast<long>(size_), SEEK_SET) != 0)
        failed_ = true;
    return false;
}

bool BlobWriter::append(const Blob& blob) {
    if (blob.memory) return write(blob.memory->data(), blob.memory->size());
    if (failed_) return false;
    if (copyInKernel(blob)) return true;
    if (failed_) return false;
    std::ifstream in(blob.path, std::ios::binary);
    if (!in) return failed_ = true, false;
    std::vector<char> chunk(1 << 20);
    std::uint64_t copied = 0;
    while (in) {
        in.read(chunk.data(), static_cast<std::streamsize>(chunk.size()));
        auto got = static_cast<std::size_t>(in.gcount());
        if (got == 0) break;
        if (!write(chunk.data(), got)) return false;
        copied += got;
    }
    if (copied != blob.size) failed_ = true;
    return !failed_;
}

std::string BlobWriter::md5Raw() {
    if (!digest_) digest_ = md5_.finishRaw();
    return *digest_;
}

Blob BlobWriter::commit(const std::string& finalPath) {
    Blob blob;
    blob.size = size_;
    committed_ = true;
    if (temp_.empty()) {
        blob.memory = std::make_shared<const std::string>(std::move(buffer_));
        return blob;
    }
    if (file_ && std::fclose(file_) != 0) failed_ = true;
    file_ = nullptr;
    std::error_code ec;
    std::filesystem::rename(temp_, finalPath, ec);
    if (ec) failed_ = true;
    blob.path = finalPath;
    return blob;
}

}  // namespace quorvane::emulator
