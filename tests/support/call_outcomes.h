#pragma once
// The answers a façade call gave through its success and fail callbacks, in order.

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/value.h"

namespace quorvane::testing {

// ("success"|"fail", value) for each answer.
struct Outcomes {
    std::vector<std::pair<std::string, Value>> calls;
    std::function<void(const Value&)> success() {
        return [this](const Value& v) { calls.emplace_back("success", v); };
    }
    std::function<void(const Value&)> fail() {
        return [this](const Value& v) { calls.emplace_back("fail", v); };
    }
};

}  // namespace quorvane::testing
