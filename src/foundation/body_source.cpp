// Request bodies: from memory, or from a byte range of a file read as it is sent.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "foundation/http_client.h"

namespace quorvane::foundation {
namespace {

class StringBody : public BodySource {
public:
    explicit StringBody(std::string bytes) : bytes_(std::move(bytes)) {}
    std::uint64_t size() const override { return bytes_.size(); }
    long long read(char* buffer, std::size_t max) override {
        std::size_t n = std::min(max, bytes_.size() - position_);
        std::memcpy(buffer, bytes_.data() + position_, n);
        position_ += n;
        return static_cast<long long>(n);
    }
    bool rewind() override {
        position_ = 0;
        return true;
    }

private:
    std::string bytes_;
    std::size_t position_ = 0;
};

// Reads with pread straight into the sender's buffer: the file is never held in memory, and
// the descriptor's own offset is never touched, so a rewind is just a position reset.
class FileRangeBody : public BodySource {
public:
    FileRangeBody(int fd, std::uint64_t offset, std::uint64_t length) : fd_(fd), offset_(offset), length_(length) {}
    ~FileRangeBody() override { ::close(fd_); }
    FileRangeBody(const FileRangeBody&) = delete;
    FileRangeBody& operator=(const FileRangeBody&) = delete;

    std::uint64_t size() const override { return length_; }
    long long read(char* buffer, std::size_t max) override {
        std::uint64_t left = length_ - position_;
        std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(max, left));
        std::size_t got = 0;
        while (got < want) {
            ssize_t n = ::pread(fd_, buffer + got, want - got, static_cast<off_t>(offset_ + position_ + got));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return -1;  // a read error, or the file shrank under us
            got += static_cast<std::size_t>(n);
        }
        position_ += got;
        return static_cast<long long>(got);
    }
    bool rewind() override {
        position_ = 0;
        return true;
    }

private:
    int fd_;
    std::uint64_t offset_;
    std::uint64_t length_;
    std::uint64_t position_ = 0;
};

void setError(Error* error, const std::string& text) {
    if (error) *error = Error(kHttpErrorDomain, kHttpErrorBadRequest, text);
}

}  // namespace

std::shared_ptr<BodySource> makeStringBody(std::string bytes) { return std::make_shared<StringBody>(std::move(bytes)); }

std::shared_ptr<BodySource> makeFileBody(const std::string& path, std::uint64_t offset, std::uint64_t length,
                                         Error* error) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        setError(error, "cannot open " + path + ": " + std::strerror(errno));
        return nullptr;
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) ||
        static_cast<std::uint64_t>(st.st_size) < offset + length || offset + length < offset) {
        ::close(fd);
        setError(error, "file range out of bounds: " + path);
        return nullptr;
    }
    return std::make_shared<FileRangeBody>(fd, offset, length);
}

}  // namespace quorvane::foundation
