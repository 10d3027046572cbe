#pragma once
// Every dictionary, array, string, number or boolean that crosses the façade.
// ordered_json keeps insertion order, so dictionaries keep their written key order.
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace quorvane {

using Value = nlohmann::ordered_json;

namespace foundation {

// Parses JSON text; bare fragments ("123", "\"x\"") are accepted. Returns nullopt on malformed text
// instead of throwing, so parsers can turn bad input into a clear error.
std::optional<Value> parseJson(std::string_view text);

// JSON text of `value` that never throws: bytes that are not UTF-8 (a file name, a server's message)
// come out as U+FFFD instead of aborting whoever writes them.
std::string toJsonText(const Value& value);

// Whether `text` is valid UTF-8 (JSON can carry it unchanged).
bool isValidUtf8(std::string_view text);

// The string at `key` of an object, or nullopt when the key is absent, null or not a string.
std::optional<std::string> stringAt(const Value& object, const std::string& key);

}  // namespace foundation
}  // namespace quorvane
