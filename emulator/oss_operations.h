#pragma once
// Which object-storage operation a request asks for.
#include <string>

#include "emulator/emulator_impl.h"

namespace quorvane::emulator {

// The service's name of the operation selected by the method, by whether a bucket and a key are named,
// by the sub-resources in the query and by the headers that select another operation (a copy source).
// Operations this emulator does not serve get their names too, so that a refusal can say which one it
// was; a sub-resource the selected operation does not take yields "<operation>?<sub-resource>".
std::string ossOperation(const Exchange& ex, bool hasBucket, bool hasKey);

}  // namespace quorvane::emulator
