#pragma once
// The general pasteboard (text only: the system copies nothing else).
#include <optional>
#include <string>

namespace quorvane::platform {

class Pasteboard {
public:
    virtual ~Pasteboard() = default;
    // Absent text clears it.
    virtual void setString(const std::optional<std::string>& text) = 0;
    virtual std::optional<std::string> string() const = 0;
};

}  // namespace quorvane::platform
