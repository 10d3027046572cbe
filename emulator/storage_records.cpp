#include "emulator/storage_records.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <unistd.h>

namespace quorvane::emulator {
namespace {

std::string str(const Value& j, const char* key) {
    auto it = j.find(key);
    return it != j.end() && it->is_string() ? it->get<std::string>() : std::string();
}

std::uint64_t num(const Value& j, const char* key) {
    auto it = j.find(key);
    return it != j.end() && it->is_number_unsigned() ? it->get<std::uint64_t>()
           : it != j.end() && it->is_number_integer() ? static_cast<std::uint64_t>(it->get<long long>())
                                                       : 0;
}

const char* stateName(UploadState s) {
    return s == UploadState::Open ? "open" : s == UploadState::Completed ? "completed" : "aborted";
}

std::map<std::string, std::string> stringMap(const Value& j) {
    std::map<std::string, std::string> out;
    if (j.is_object())
        for (auto& [k, v] : j.items())
            if (v.is_string()) out[k] = v.get<std::string>();
    return out;
}

}  // namespace

Value objectToJson(const ObjectInfo& o) {
    Value j = {{"bucket", o.bucket},        {"key", o.key},
               {"size", o.size},            {"etag", o.etag},
               {"crc64", o.crc64},          {"contentType", o.contentType},
               {"metadata", o.metadata},    {"notification", o.notification},
               {"lastModified", o.lastModified}, {"partCount", o.partCount},
               {"acl", o.acl}};
    j["tags"] = Value::array();
    for (const auto& [k, v] : o.tags) j["tags"].push_back(Value::array({k, v}));
    if (o.notificationRaw) j["notificationRaw"] = *o.notificationRaw;
    return j;
}

ObjectInfo objectFromJson(const Value& j) {
    ObjectInfo o;
    o.bucket = str(j, "bucket");
    o.key = str(j, "key");
    o.size = num(j, "size");
    o.etag = str(j, "etag");
    o.crc64 = num(j, "crc64");
    o.contentType = str(j, "contentType");
    if (j.contains("metadata")) o.metadata = stringMap(j["metadata"]);
    if (j.contains("notificationRaw")) o.notificationRaw = str(j, "notificationRaw");
    o.notification = j.value("notification", Value());
    o.lastModified = str(j, "lastModified");
    o.partCount = static_cast<int>(num(j, "partCount"));
    if (auto acl = str(j, "acl"); !acl.empty()) o.acl = acl;
    if (auto tags = j.find("tags"); tags != j.end() && tags->is_array())
        for (const auto& t : *tags)
            if (t.is_array() && t.size() == 2 && t[0].is_string() && t[1].is_string())
                o.tags.emplace_back(t[0].get<std::string>(), t[1].get<std::string>());
    return o;
}

Value partToJson(const PartInfo& p) {
    return {{"number", p.number}, {"size", p.size}, {"md5Hex", p.md5Hex},
            {"etag", p.etag},     {"crc64", p.crc64}, {"lastModified", p.lastModified}};
}

PartInfo partFromJson(const Value& j) {
    PartInfo p;
    p.number = static_cast<int>(num(j, "number"));
    p.size = num(j, "size");
    p.md5Hex = str(j, "md5Hex");
    p.etag = str(j, "etag");
    p.crc64 = num(j, "crc64");
    p.lastModified = str(j, "lastModified");
    return p;
}

Value uploadToJson(const UploadInfo& u, const std::map<std::string, std::string>& metadata) {
    Value parts = Value::array();
    if (u.state != UploadState::Open)  // open uploads keep one file per part instead
        for (const auto& p : u.parts) parts.push_back(partToJson(p));
    return {{"uploadId", u.uploadId}, {"bucket", u.bucket},         {"key", u.key},
            {"contentType", u.contentType}, {"state", stateName(u.state)}, {"metadata", metadata},
            {"parts", parts}, {"initiated", u.initiated}};
}

UploadInfo uploadFromJson(const Value& j, std::map<std::string, std::string>& metadata) {
    UploadInfo u;
    u.uploadId = str(j, "uploadId");
    u.bucket = str(j, "bucket");
    u.key = str(j, "key");
    u.contentType = str(j, "contentType");
    u.initiated = str(j, "initiated");
    auto state = str(j, "state");
    u.state = state == "completed" ? UploadState::Completed : state == "aborted" ? UploadState::Aborted
                                                                                  : UploadState::Open;
    if (j.contains("metadata")) metadata = stringMap(j["metadata"]);
    if (j.contains("parts") && j["parts"].is_array())
        for (const auto& p : j["parts"]) u.parts.push_back(partFromJson(p));
    return u;
}

std::optional<std::string> recordText(const Value& json) {
    try {
        return json.dump();
    } catch (const Value::exception&) {
        return std::nullopt;
    }
}

bool writeFileAtomically(const std::string& path, const std::string& text) {
    auto temp = path + ".tmp";
    int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    bool ok = true;
    for (std::size_t done = 0; ok && done < text.size();) {
        auto n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        ok = n > 0;
        if (ok) done += static_cast<std::size_t>(n);
    }
    ok = ::close(fd) == 0 && ok;
    std::error_code ec;
    if (ok) std::filesystem::rename(temp, path, ec);
    if (!ok || ec) std::filesystem::remove(temp, ec);
    return ok && !ec;
}

std::optional<std::string> readTextFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::optional<Value> readJsonFile(const std::string& path) {
    auto text = readTextFile(path);
    if (!text) return std::nullopt;
    return foundation::parseJson(*text);
}

}  // namespace quorvane::emulator
