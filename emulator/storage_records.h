#pragma once
// How stored records are written to the storage directory (JSON files, replaced atomically).
#include <optional>
#include <string>

#include "emulator/cloud_emulator.h"

namespace quorvane::emulator {

Value objectToJson(const ObjectInfo& info);
ObjectInfo objectFromJson(const Value& json);
Value partToJson(const PartInfo& part);
PartInfo partFromJson(const Value& json);
Value uploadToJson(const UploadInfo& info, const std::map<std::string, std::string>& metadata);
UploadInfo uploadFromJson(const Value& json, std::map<std::string, std::string>& metadata);

bool writeFileAtomically(const std::string& path, const std::string& text);
std::optional<Value> readJsonFile(const std::string& path);

}  // namespace quorvane::emulator
