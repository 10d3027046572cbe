#pragma once
// Request-body helpers: a body that computes the CRC-64 of the bytes as they are sent (so a file is
// read once), and one that checks the file has not changed before its last bytes leave.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "foundation/error.h"
#include "foundation/http_client.h"
#include "oss/oss_local_file.h"
#include "oss/oss_requests.h"

namespace quorvane::oss {

// Wraps a body; the CRC and the byte count restart when the body is rewound (a retry).
class Crc64BodySource : public foundation::BodySource {
public:
    explicit Crc64BodySource(std::shared_ptr<foundation::BodySource> inner);
    std::uint64_t size() const override;
    long long read(char* buffer, std::size_t max) override;
    bool rewind() override;
    std::uint64_t crc64() const { return crc_; }
    std::uint64_t bytesRead() const { return bytesRead_; }
private:
    std::shared_ptr<foundation::BodySource> inner_;
    std::uint64_t crc_ = 0;
    std::uint64_t bytesRead_ = 0;
};

// A file's body that looks at the file again before it hands out its last bytes: if the file is no
// longer in `expected` state, the read fails, so the request ends short and the service stores
// nothing, and changed() tells why. A changed file cannot be rewound for another try.
class FileStateCheckedBody : public foundation::BodySource {
public:
    FileStateCheckedBody(std::shared_ptr<foundation::BodySource> inner, std::string path, OSSFileState expected);
    std::uint64_t size() const override { return inner_->size(); }
    long long read(char* buffer, std::size_t max) override;
    bool rewind() override;
    bool changed() const { return changed_; }

private:
    std::shared_ptr<foundation::BodySource> inner_;
    std::string path_;
    OSSFileState expected_;
    std::uint64_t read_ = 0;
    bool changed_ = false;
};

// Reads a range and returns its CRC-64 (used to check parts the service holds against the file).
std::optional<std::uint64_t> crc64OfFileRange(const std::string& path, std::uint64_t offset, std::uint64_t length);

// Compares a CRC computed here with the one the service answered; an InvalidCRC error on mismatch.
// A missing answer header is not checked.
std::optional<Error> checkCrc(const char* what, std::uint64_t local, std::optional<std::uint64_t> remote);

}  // namespace quorvane::oss
