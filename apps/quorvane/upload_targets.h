#pragma once
// What `quorvane upload` sends and where: the command line's paths expanded into files (directories
// walked with -r, filtered by globs), each file with the object key it goes to. Two files that would
// land on one key are refused before anything is sent.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quorvane::app {

struct SourceFile {
    std::string display;   // as the user wrote it, or the directory joined with the path below it
    std::string path;      // absolute
    std::string relative;  // below the directory given, or the base name for a file given directly
    std::uint64_t size = 0;
};

struct Selection {
    bool recursive = false;
    std::vector<std::string> include, exclude;  // fnmatch globs on the relative path or the base name
};

// The files the arguments name; "" in `problem` when all of them can be read.
std::vector<SourceFile> selectFiles(const std::vector<std::string>& arguments, const Selection& selection,
                                    std::string& problem);

// Whether a file whose size reads 0 really has no content. Files of /proc and /sys report 0 and yet
// read text: storing them by their size would store an empty object.
bool readsEmpty(const std::string& path);

// "oss://bucket/some/key" into its bucket and key (the key may be empty or end in "/").
struct OssUrl {
    std::string bucket, key;
};
std::optional<OssUrl> parseOssUrl(const std::string& text);

struct KeyRule {
    std::string key;     // --key: the one file's whole key
    std::string prefix;  // --prefix: put before each file's relative path
};

// The object key of each file, in order; "" in `problem` unless each key is valid and unique.
std::vector<std::string> objectKeys(const std::vector<SourceFile>& files, const KeyRule& rule, std::string& problem);

}  // namespace quorvane::app
