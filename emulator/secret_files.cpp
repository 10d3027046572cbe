#include "emulator/secret_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "emulator/util.h"

namespace quorvane::emulator {

bool writePrivateFile(const std::string& path, const std::string& text) {
    const auto temp = path + ".tmp-" + randomHex(8, false);
    int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    ::fchmod(fd, 0600);  // whatever the umask
    std::size_t done = 0;
    while (done < text.size()) {
        auto n = ::write(fd, text.data() + done, text.size() - done);
        if (n <= 0) break;
        done += static_cast<std::size_t>(n);
    }
    bool ok = done == text.size() && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    if (ok && std::rename(temp.c_str(), path.c_str()) == 0) return true;
    std::remove(temp.c_str());
    return false;
}

std::optional<std::string> readWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace quorvane::emulator
