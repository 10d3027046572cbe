#pragma once
// An error record: domain, code and user information, the way the system reports failures.
#include <string>

#include "foundation/value.h"

namespace quorvane {

struct Error {
    std::string domain;
    long long code = 0;
    Value userInfo = Value::object();
    std::string description;

    Error() = default;
    Error(std::string domain_, long long code_, std::string description_ = {}, Value userInfo_ = Value::object())
        : domain(std::move(domain_)), code(code_), userInfo(std::move(userInfo_)), description(std::move(description_)) {}

    // "domain(code): description", for logs and messages.
    std::string toString() const;
};

}  // namespace quorvane
