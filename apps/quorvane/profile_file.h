#pragma once
// Writes one profile of the credentials file (INI), keeping the other profiles and the profile's other
// entries as they are. The file holds secrets: it is written 0600 (its directory 0700) through a new
// file renamed over the old, so that no moment shows it half written or readable by others.
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quorvane::app {

// Every profile of an INI file: section name -> entry name (lower case) -> value, trimmed. Lines of any
// length (an STS token runs past a thousand characters); '#' and ';' start comment lines. nullopt with
// `problem` set ("cannot parse line N") on a line that is neither.
std::optional<std::map<std::string, std::map<std::string, std::string>>> readProfiles(const std::string& path,
                                                                                    std::string& problem);

// `values`: entries to set; an empty value removes the entry. false with `problem` set on failure.
bool writeProfile(const std::string& path, const std::string& profile,
                  const std::vector<std::pair<std::string, std::string>>& values, std::string& problem);

}  // namespace quorvane::app
