#include "oss/oss_body.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "oss/crc64.h"
#include "oss/oss_error.h"

namespace quorvane::oss {

Crc64BodySource::Crc64BodySource(std::shared_ptr<foundation::BodySource> inner) : inner_(std::move(inner)) {}

std::uint64_t Crc64BodySource::size() const { return inner_->size(); }

long long Crc64BodySource::read(char* buffer, std::size_t max) {
    long long n = inner_->read(buffer, max);
    if (n > 0) {
        crc_ = Crc64::update(crc_, buffer, static_cast<std::size_t>(n));
        bytesRead_ += static_cast<std::uint64_t>(n);
    }
    return n;
}

bool Crc64BodySource::rewind() {
    crc_ = 0;
    bytesRead_ = 0;
    return inner_->rewind();
}

namespace {

OSSFileState stateOf(const struct stat& st) {
    OSSFileState state;
    state.size = static_cast<std::uint64_t>(st.st_size);
    state.mtimeNs = static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec;
    state.ctimeNs = static_cast<std::int64_t>(st.st_ctim.tv_sec) * 1000000000LL + st.st_ctim.tv_nsec;
    state.inode = static_cast<std::uint64_t>(st.st_ino);
    state.device = static_cast<std::uint64_t>(st.st_dev);
    return state;
}

}  // namespace

Error fileChangedError(const std::string& path) {
    auto error = makeClientError(OSSClientErrorCodeFileCantRead,
                                 "The file " + path + " changed while it was being uploaded");
    error.userInfo["Code"] = "FileChanged";
    return error;
}

FileStateCheckedBody::FileStateCheckedBody(std::shared_ptr<foundation::BodySource> inner, std::string path,
                                           OSSFileState expected)
    : inner_(std::move(inner)), path_(std::move(path)), expected_(expected) {}

long long FileStateCheckedBody::read(char* buffer, std::size_t max) {
    if (changed_) return -1;
    long long n = inner_->read(buffer, max);
    if (n > 0) read_ += static_cast<std::uint64_t>(n);
    // One stat per request, when the last bytes are in hand and not yet sent.
    if (n >= 0 && read_ >= inner_->size()) {
        struct stat st {};
        if (::stat(path_.c_str(), &st) != 0 || stateOf(st) != expected_) {
            changed_ = true;
            return -1;
        }
    }
    return n;
}

bool FileStateCheckedBody::rewind() {
    if (changed_) return false;
    read_ = 0;
    return inner_->rewind();
}

std::string pathFromFileURL(const std::string& fileURL) {
    if (fileURL.rfind("file://", 0) == 0) {
        auto rest = fileURL.substr(7);
        auto decoded = foundation::urlDecode(rest);
        return decoded ? *decoded : rest;
    }
    return fileURL;
}

std::optional<OSSFileState> currentFileState(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return std::nullopt;
    return stateOf(st);
}

std::optional<OSSLocalFile> inspectLocalFile(const std::string& fileURL, Error* error, const OSSFileState* known) {
    auto fail = [&](OSSClientErrorCode code, const std::string& message) -> std::optional<OSSLocalFile> {
        if (error) *error = makeClientError(code, message);
        return std::nullopt;
    };
    OSSLocalFile file;
    file.path = pathFromFileURL(fileURL);
    if (file.path.empty()) return fail(OSSClientErrorCodeInvalidArgument, "No file to upload was given");
    struct stat st {};
    if (::stat(file.path.c_str(), &st) != 0)
        return fail(OSSClientErrorCodeFileCantRead,
                    "Can't read the file " + file.path + ": " + std::strerror(errno));
    if (S_ISDIR(st.st_mode)) return fail(OSSClientErrorCodeInvalidArgument, file.path + " is a directory, not a file");
    if (!S_ISREG(st.st_mode)) return fail(OSSClientErrorCodeInvalidArgument, file.path + " is not a regular file");
    static_cast<OSSFileState&>(file) = stateOf(st);
    if (known && *known == file.state()) return file;
    int fd = ::open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return fail(OSSClientErrorCodeFileCantRead, "Can't read the file " + file.path + ": " + std::strerror(errno));
    ::close(fd);
    return file;
}

std::optional<std::uint64_t> crc64OfFileRange(const std::string& path, std::uint64_t offset, std::uint64_t length) {
    std::ifstream in(path, std::ios::binary);
    if (!in.seekg(static_cast<std::streamoff>(offset))) return std::nullopt;
    std::vector<char> buffer(256 * 1024);
    std::uint64_t crc = 0;
    while (length > 0) {
        auto want = static_cast<std::streamsize>(std::min<std::uint64_t>(length, buffer.size()));
        in.read(buffer.data(), want);
        if (in.gcount() != want) return std::nullopt;
        crc = Crc64::update(crc, buffer.data(), static_cast<std::size_t>(want));
        length -= static_cast<std::uint64_t>(want);
    }
    return crc;
}

std::optional<Error> checkCrc(const char* what, std::uint64_t local, std::optional<std::uint64_t> remote) {
    if (!remote || *remote == local) return std::nullopt;
    return makeClientError(OSSClientErrorCodeInvalidCRC, std::string("The CRC-64 of the ") + what +
                                                             " differs: sent " + std::to_string(local) +
                                                             ", the service stored " + std::to_string(*remote));
}

}  // namespace quorvane::oss
