#include "emulator/fault_file.h"

#include <set>

#include "emulator/secret_files.h"

namespace quorvane::emulator {
namespace {

using Json = nlohmann::json;

// A whole number in [low, high] at `key`, or `fallback` when absent; false (with `error`) otherwise.
bool integerAt(const Json& entry, const char* key, long long low, long long high, long long fallback, long long& out,
               std::string& error) {
    out = fallback;
    if (!entry.contains(key)) return true;
    const auto& v = entry[key];
    if (!v.is_number_integer() || v.get<long long>() < low || v.get<long long>() > high) {
        error = std::string("\"") + key + "\" must be a whole number from " + std::to_string(low) + " to " +
                std::to_string(high);
        return false;
    }
    out = v.get<long long>();
    return true;
}

bool stringAt(const Json& entry, const char* key, std::string& out, std::string& error) {
    if (!entry.contains(key)) return true;
    if (!entry[key].is_string()) {
        error = std::string("\"") + key + "\" must be a string";
        return false;
    }
    out = entry[key].get<std::string>();
    return true;
}

std::optional<Fault> faultOf(const Json& entry, long long& count, std::string& error) {
    if (!entry.is_object()) return error = "an entry must be an object", std::nullopt;
    static const std::set<std::string> known{"operation", "fault", "count", "status", "code", "message",
                                             "after_bytes", "delay_ms"};
    for (const auto& [key, value] : entry.items())
        if (!known.count(key)) return error = "unknown name \"" + key + "\"", std::nullopt;
    Fault f;
    if (!entry.contains("operation")) return error = "\"operation\" is missing (\"*\" for any)", std::nullopt;
    std::string kind;
    if (!stringAt(entry, "operation", f.op, error) || !stringAt(entry, "fault", kind, error)) return std::nullopt;
    if (f.op.empty()) return error = "\"operation\" is empty", std::nullopt;
    if (kind.empty()) kind = entry.contains("delay_ms") ? "delay" : entry.contains("status") ? "error" : "";
    long long status = 0, afterBytes = 0, delayMs = 0;
    if (!integerAt(entry, "count", 1, 100000, 1, count, error) ||
        !integerAt(entry, "status", 400, 599, 500, status, error) ||
        !integerAt(entry, "after_bytes", 0, 1LL << 40, 0, afterBytes, error) ||
        !integerAt(entry, "delay_ms", 0, 3600000, 0, delayMs, error))
        return std::nullopt;
    std::string code = status == 503 ? "ServiceUnavailable" : "InternalError", message;
    if (!stringAt(entry, "code", code, error) || !stringAt(entry, "message", message, error)) return std::nullopt;
    if (kind == "error") return Fault::error(f.op, static_cast<int>(status), code, message);
    if (kind == "reset") return Fault::reset(f.op, static_cast<std::uint64_t>(afterBytes));
    if (kind == "delay") return Fault::delay(f.op, static_cast<int>(delayMs));
    if (kind == "corrupt-crc") return Fault::corruptCrc(f.op);
    error = kind.empty() ? "no \"fault\" (error, reset, delay, corrupt-crc), \"status\" or \"delay_ms\""
                         : "unknown fault \"" + kind + "\" (error, reset, delay, corrupt-crc)";
    return std::nullopt;
}

}  // namespace

std::optional<std::vector<Fault>> parseFaultScript(const std::string& text, std::string& error) {
    Json script;
    try {
        script = Json::parse(text);
    } catch (const Json::exception& e) {
        error = std::string("not JSON: ") + e.what();
        return std::nullopt;
    }
    if (!script.is_array()) return error = "the script must be a JSON array of faults", std::nullopt;
    std::vector<Fault> faults;
    for (std::size_t i = 0; i < script.size(); ++i) {
        long long count = 1;
        auto fault = faultOf(script[i], count, error);
        if (!fault) return error = "entry " + std::to_string(i + 1) + ": " + error, std::nullopt;
        faults.insert(faults.end(), static_cast<std::size_t>(count), *fault);
    }
    return faults;
}

std::optional<std::vector<Fault>> loadFaultScript(const std::string& path, std::string& error) {
    auto text = readWholeFile(path);
    if (!text) return error = path + ": cannot be read", std::nullopt;
    auto faults = parseFaultScript(*text, error);
    if (!faults) error = path + ": " + error;
    return faults;
}

}  // namespace quorvane::emulator
