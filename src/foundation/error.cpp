#include "foundation/error.h"

namespace quorvane {

std::string Error::toString() const {
    std::string s = domain + "(" + std::to_string(code) + ")";
    if (!description.empty()) s += ": " + description;
    return s;
}

}  // namespace quorvane
