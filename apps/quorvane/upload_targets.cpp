#include "upload_targets.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>

namespace quorvane::app {
namespace {
namespace fs = std::filesystem;

// A glob matches a file by its path or its name, or by a directory it lies in (that directory's path
// below the root, or its name): "tmp/" or "tmp" takes everything inside each directory named tmp. A glob
// ending in "/" matches directories only.
bool matchesAny(const std::vector<std::string>& globs, const std::string& relative) {
    auto matches = [](const std::string& glob, const fs::path& path) {
        return fnmatch(glob.c_str(), path.generic_string().c_str(), 0) == 0 ||
               fnmatch(glob.c_str(), path.filename().string().c_str(), 0) == 0;
    };
    return std::any_of(globs.begin(), globs.end(), [&](std::string glob) {
        const bool directoriesOnly = glob.size() > 1 && glob.back() == '/';
        if (directoriesOnly) glob.pop_back();
        fs::path path(relative);
        if (!directoriesOnly && matches(glob, path)) return true;
        for (auto dir = path.parent_path(); !dir.empty(); dir = dir.parent_path())
            if (matches(glob, dir)) return true;
        return false;
    });
}

bool selected(const Selection& s, const std::string& relative) {
    if (!s.include.empty() && !matchesAny(s.include, relative)) return false;
    return !matchesAny(s.exclude, relative);
}

// Why the file cannot be uploaded, or "" when it can. Only regular files are: a FIFO or a device
// (/dev/zero) has no size to upload and could block or never end.
std::string fileProblem(const std::string& shown, const std::string& path, std::uint64_t& size) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return shown + ": no such file";
    if (S_ISDIR(st.st_mode)) return shown + ": is a directory (use -r to upload what is inside)";
    if (S_ISFIFO(st.st_mode)) return shown + ": is a FIFO, not a regular file";
    if (S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode)) return shown + ": is a device, not a regular file";
    if (!S_ISREG(st.st_mode)) return shown + ": not a regular file";
    if (::access(path.c_str(), R_OK) != 0) return shown + ": cannot be read (permission denied)";
    size = static_cast<std::uint64_t>(st.st_size);
    if (size == 0 && !readsEmpty(path))
        return shown + ": its size reads 0 but it has content (a /proc or /sys file?): it cannot be uploaded by "
                       "its size; copy it to a regular file first";
    return {};
}

void walk(const std::string& argument, const Selection& selection, std::vector<SourceFile>& out,
          std::string& problem) {
    std::error_code ec;
    fs::path root = fs::absolute(argument, ec).lexically_normal();
    std::vector<fs::path> found;
    for (fs::recursive_directory_iterator it(root, fs::directory_options::skip_permission_denied, ec), end;
         it != end; it.increment(ec)) {
        if (ec) break;
        if (it->is_regular_file(ec)) found.push_back(it->path());
    }
    if (ec) {
        problem = argument + ": cannot be listed: " + ec.message();
        return;
    }
    std::sort(found.begin(), found.end());  // a stable order: the same run twice uploads the same way
    for (const auto& path : found) {
        SourceFile file;
        file.relative = path.lexically_relative(root).generic_string();
        if (!selected(selection, file.relative)) continue;
        file.path = path.string();
        file.display = (fs::path(argument) / file.relative).string();
        problem = fileProblem(file.display, file.path, file.size);
        if (!problem.empty()) return;
        out.push_back(std::move(file));
    }
}

}  // namespace

bool readsEmpty(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return true;  // unreadable is reported where the file is read
    char byte;
    ssize_t n;
    do n = ::read(fd, &byte, 1);
    while (n < 0 && errno == EINTR);
    ::close(fd);
    return n <= 0;
}

std::vector<SourceFile> selectFiles(const std::vector<std::string>& arguments, const Selection& selection,
                                    std::string& problem) {
    std::vector<SourceFile> files;
    problem.clear();
    for (const auto& argument : arguments) {
        if (argument.empty()) {
            problem = "an empty file name ('') was given";
            return {};
        }
        std::error_code ec;
        if (selection.recursive && fs::is_directory(argument, ec)) {
            walk(argument, selection, files, problem);
        } else {
            SourceFile file;
            file.display = argument;
            file.path = fs::absolute(argument, ec).lexically_normal().string();
            file.relative = fs::path(file.path).filename().string();
            problem = fileProblem(argument, file.path, file.size);
            if (problem.empty() && selection.recursive && !selected(selection, file.relative)) continue;
            if (problem.empty()) files.push_back(std::move(file));
        }
        if (!problem.empty()) return {};
    }
    return files;
}

std::optional<OssUrl> parseOssUrl(const std::string& text) {
    constexpr std::string_view scheme = "oss://";
    if (text.rfind(scheme, 0) != 0) return std::nullopt;
    auto rest = text.substr(scheme.size());
    auto slash = rest.find('/');
    OssUrl url{rest.substr(0, slash), slash == std::string::npos ? "" : rest.substr(slash + 1)};
    if (url.bucket.empty()) return std::nullopt;
    return url;
}

std::vector<std::string> objectKeys(const std::vector<SourceFile>& files, const KeyRule& rule, std::string& problem) {
    problem.clear();
    if (!rule.key.empty() && files.size() != 1) {
        problem = "--key names one object: give one file, or --prefix for several";
        return {};
    }
    std::vector<std::string> keys;
    std::map<std::string, std::string> owner;
    for (const auto& file : files) {
        std::string key = rule.key.empty() ? rule.prefix + file.relative : rule.key;
        if (key.empty() || key.front() == '/' || key.size() > 1023) {
            problem = file.display + ": '" + key + "' cannot be an object key";
            return {};
        }
        auto [it, fresh] = owner.emplace(key, file.display);
        if (!fresh) {
            problem = file.display + " and " + it->second + " would both be stored as '" + key +
                      "': give --prefix with -r, or upload them separately with --key";
            return {};
        }
        keys.push_back(key);
    }
    return keys;
}

}  // namespace quorvane::app
