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

// JSON text of a record; nullopt when it cannot be written as JSON (a string that is not UTF-8).
std::optional<std::string> recordText(const Value& json);
// Writes the file under a temporary name and renames it into place; false, with neither file left
// behind, when a write or the close failed.
bool writeFileAtomically(const std::string& path, const std::string& text);
std::optional<Value> readJsonFile(const std::string& path);
std::optional<std::string> readTextFile(const std::string& path);

}  // namespace quorvane::emulator
