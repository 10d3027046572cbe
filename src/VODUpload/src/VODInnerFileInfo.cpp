#include "VODUpload/src/VODInnerFileInfo.h"

#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "VODUpload/src/VODDateFormat.h"
#include "foundation/crypto.h"

namespace quorvane {
namespace {

foundation::SystemTime fromTimespec(std::int64_t sec, std::uint32_t nsec) {
    return foundation::SystemTime(std::chrono::duration_cast<foundation::SystemTime::duration>(
        std::chrono::seconds(sec) + std::chrono::nanoseconds(nsec)));
}

// Closes the stream on every path out.
struct Stream {
    std::FILE* file;
    ~Stream() {
        if (file) std::fclose(file);
    }
};

}  // namespace

std::optional<VODFileAttributes> vodFileAttributes(const std::string& path) {
    if (path.empty()) return std::nullopt;
    struct statx sx {};
    if (::statx(AT_FDCWD, path.c_str(), 0, STATX_SIZE | STATX_BTIME, &sx) != 0) return std::nullopt;
    VODFileAttributes attrs;
    attrs.size = static_cast<std::int64_t>(sx.stx_size);
    // A file system that keeps no birth time gives no creation date: the modification time would
    // make the identity change with every edit.
    if (sx.stx_mask & STATX_BTIME) attrs.creationDate = fromTimespec(sx.stx_btime.tv_sec, sx.stx_btime.tv_nsec);
    return attrs;
}

std::string vodLastPathComponent(const std::string& path) {
    auto end = path.find_last_not_of('/');
    if (end == std::string::npos) return path.empty() ? "" : "/";
    auto start = path.find_last_of('/', end);
    start = (start == std::string::npos) ? 0 : start + 1;
    return path.substr(start, end - start + 1);
}

std::string vodPathExtension(const std::string& path) {
    std::string name = vodLastPathComponent(path);
    auto dot = name.find_last_of('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == name.size()) return "";
    return name.substr(dot + 1);
}

VODInnerFileInfo::VODInnerFileInfo(std::string path) : filePath(std::move(path)) { setup(); }

void VODInnerFileInfo::setup() {
    auto attrs = vodFileAttributes(filePath);
    fileName = vodLastPathComponent(filePath);
    fileSize = std::to_string(attrs ? attrs->size : 0);
    fileCreateTime = (attrs && attrs->creationDate) ? vodDateString(*attrs->creationDate, false) : "";
    fileHash = md5WithPath(filePath, kMaxHashSize).value_or("");
    fileType = fileTypeForExtension(vodPathExtension(filePath));
}

std::optional<std::string> VODInnerFileInfo::md5WithPath(const std::string& path, std::uint64_t maxHashSize) {
    if (path.empty()) return std::nullopt;
    // A buffered stream: the 256-byte reads below cost 16 system calls per mebibyte, not 4096.
    // (The buffer is declared first so that it outlives the stream.)
    char streamBuffer[64 * 1024];
    Stream file{std::fopen(path.c_str(), "rbe")};
    if (!file.file) return std::nullopt;
    std::setvbuf(file.file, streamBuffer, _IOFBF, sizeof streamBuffer);
    foundation::Md5Stream md5;
    char buffer[256];
    // The counter moves by a whole buffer per read whatever the read delivered: a short read
    // mid-file shortens the hashed range, and identities already stored by the service depend on it.
    for (std::uint64_t counted = 0; counted < maxHashSize; counted += sizeof buffer) {
        std::size_t n = std::fread(buffer, 1, sizeof buffer, file.file);
        if (std::ferror(file.file)) return std::nullopt;
        if (n == 0) break;
        md5.update(buffer, n);
    }
    return foundation::hexLower(md5.finishRaw());
}

Value VODInnerFileInfo::toDictionary() const {
    Value d = Value::object();
    d["FileName"] = fileName;
    d["FileSize"] = fileSize;
    d["FileCreateTime"] = fileCreateTime;
    d["FileHash"] = fileHash;
    return d;
}

std::string VODInnerFileInfo::toUrlString() const {
    return "{\"FileHash\":\"" + fileHash + "\",\"FileName\":\"" + fileName + "\",\"FileCreateTime\":\"" +
           fileCreateTime + "\",\"FileSize\":\"" + fileSize + "\"}";
}

}  // namespace quorvane
