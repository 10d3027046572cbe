#pragma once
// Fault scripts: per-operation queues consumed in order, with a record of what fired.
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "emulator/cloud_emulator.h"

namespace quorvane::emulator {

class FaultScript {
public:
    void add(Fault fault);
    // The next fault for this operation (its own queue first, then "*"), recorded as fired.
    std::optional<Fault> take(const std::string& operation, const std::string& path);
    void clear();  // pending faults only
    void reset();  // pending and fired
    std::size_t pending() const;
    std::vector<FiredFault> fired() const;
    std::size_t firedCount(const std::string& operation) const;

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::deque<Fault>> queues_;
    std::vector<FiredFault> fired_;
};

}  // namespace quorvane::emulator
