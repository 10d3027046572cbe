#include "download_record.h"

#include <fstream>
#include <sstream>

#include "foundation/value.h"

namespace quorvane::app {

std::string partialPathFor(const std::string& destination) { return destination + ".quorvane-part"; }
std::string recordPathFor(const std::string& destination) { return partialPathFor(destination) + ".json"; }

std::optional<DownloadRecord> readDownloadRecord(const std::string& path) {
    std::ifstream in(path);
    if (!in) return std::nullopt;
    std::stringstream text;
    text << in.rdbuf();
    auto value = foundation::parseJson(text.str());
    if (!value || !value->is_object()) return std::nullopt;
    try {
        return DownloadRecord{value->at("bucket"), value->at("key"), value->at("eTag"), value->at("size")};
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

bool writeDownloadRecord(const std::string& path, const DownloadRecord& r) {
    std::ofstream out(path, std::ios::trunc);
    out << Value{{"bucket", r.bucket}, {"key", r.key}, {"eTag", r.eTag}, {"size", r.size}}.dump(
               -1, ' ', false, Value::error_handler_t::replace);
    out.close();
    return out.good();
}

}  // namespace quorvane::app
