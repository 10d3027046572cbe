#include "profile_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace quorvane::app {
namespace {
namespace fs = std::filesystem;

std::string trimmed(const std::string& text) {
    auto first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// "[name]" -> "name"; "" for other lines.
std::string sectionOf(const std::string& line) {
    auto text = trimmed(line);
    if (text.size() < 2 || text.front() != '[' || text.back() != ']') return {};
    return trimmed(text.substr(1, text.size() - 2));
}

std::string keyOf(const std::string& line) {
    auto text = trimmed(line);
    if (text.empty() || text[0] == '#' || text[0] == ';') return {};
    auto eq = text.find('=');
    return eq == std::string::npos ? std::string() : trimmed(text.substr(0, eq));
}

}  // namespace

std::optional<std::map<std::string, std::map<std::string, std::string>>> readProfiles(const std::string& path,
                                                                                    std::string& problem) {
    std::ifstream in(path);
    if (!in) {
        problem = "cannot read " + path;
        return std::nullopt;
    }
    std::map<std::string, std::map<std::string, std::string>> sections;
    std::string current;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        auto text = trimmed(line);
        if (number == 1 && text.rfind("\xEF\xBB\xBF", 0) == 0) text = trimmed(text.substr(3));  // a BOM
        if (text.empty() || text[0] == '#' || text[0] == ';') continue;
        if (auto name = sectionOf(text); !name.empty()) {
            current = name;
            sections[current];
            continue;
        }
        auto eq = text.find('=');
        if (eq == std::string::npos || eq == 0) {
            problem = "cannot parse line " + std::to_string(number);
            return std::nullopt;
        }
        auto key = trimmed(text.substr(0, eq));
        for (auto& c : key) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        sections[current][key] = trimmed(text.substr(eq + 1));
    }
    return sections;
}

bool writeProfile(const std::string& path, const std::string& profile,
                  const std::vector<std::pair<std::string, std::string>>& values, std::string& problem) {
    std::vector<std::string> lines;
    {
        std::ifstream in(path);
        for (std::string line; std::getline(in, line);) lines.push_back(line);
    }
    // The profile's lines: its header up to the next header.
    auto begin = std::find_if(lines.begin(), lines.end(), [&](const auto& l) { return sectionOf(l) == profile; });
    if (begin == lines.end()) {
        if (!lines.empty() && !trimmed(lines.back()).empty()) lines.emplace_back();
        lines.push_back("[" + profile + "]");
        begin = lines.end() - 1;
    }
    auto end = std::find_if(begin + 1, lines.end(), [](const auto& l) { return !sectionOf(l).empty(); });
    std::vector<std::string> section(begin + 1, end);
    for (const auto& [key, value] : values) {
        auto same = [&name = key](const std::string& l) { return keyOf(l) == name; };
        section.erase(std::remove_if(section.begin(), section.end(), same), section.end());
        if (value.empty()) continue;
        // After the last entry, before trailing blank lines.
        auto at = section.end();
        while (at != section.begin() && trimmed(*(at - 1)).empty()) --at;
        section.insert(at, key + " = " + value);
    }
    const auto header = begin - lines.begin();
    lines.erase(begin + 1, end);
    lines.insert(lines.begin() + header + 1, section.begin(), section.end());

    std::error_code ec;
    auto directory = fs::path(path).parent_path();
    if (!directory.empty() && !fs::exists(directory, ec)) {
        fs::create_directories(directory, ec);
        if (ec) {
            problem = "cannot create " + directory.string() + ": " + ec.message();
            return false;
        }
        ::chmod(directory.c_str(), 0700);
    }
    const std::string temporary = path + ".new";
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) {
        problem = "cannot write " + temporary + ": " + std::strerror(errno);
        return false;
    }
    ::fchmod(fd, 0600);  // an old file of that name may have had another mode
    std::string text;
    for (const auto& line : lines) text += line + "\n";
    bool ok = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    if (!ok || ::rename(temporary.c_str(), path.c_str()) != 0) {
        problem = "cannot write " + path + ": " + std::strerror(errno);
        ::unlink(temporary.c_str());
        return false;
    }
    return true;
}

}  // namespace quorvane::app
