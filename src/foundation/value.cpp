#include "foundation/value.h"

namespace quorvane::foundation {

std::optional<Value> parseJson(std::string_view text) {
    Value v = Value::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false);
    if (v.is_discarded()) return std::nullopt;
    return v;
}

std::string toJsonText(const Value& value) { return value.dump(-1, ' ', false, Value::error_handler_t::replace); }

bool isValidUtf8(std::string_view text) {
    try {
        (void)Value(std::string(text)).dump();
        return true;
    } catch (const nlohmann::json::exception&) {
        return false;
    }
}

std::optional<std::string> stringAt(const Value& object, const std::string& key) {
    if (!object.is_object()) return std::nullopt;
    auto it = object.find(key);
    if (it == object.end() || !it->is_string()) return std::nullopt;
    return it->get<std::string>();
}

}  // namespace quorvane::foundation
