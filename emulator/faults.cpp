#include "emulator/faults.h"

namespace quorvane::emulator {

Fault Fault::error(std::string op, int status, std::string code, std::string message) {
    Fault f;
    f.op = std::move(op);
    f.kind = Kind::Error;
    f.status = status;
    f.code = std::move(code);
    f.message = std::move(message);
    return f;
}

Fault Fault::reset(std::string op, std::uint64_t afterBytes) {
    Fault f;
    f.op = std::move(op);
    f.kind = Kind::Reset;
    f.afterBytes = afterBytes;
    return f;
}

Fault Fault::delay(std::string op, int delayMs) {
    Fault f;
    f.op = std::move(op);
    f.kind = Kind::Delay;
    f.delayMs = delayMs;
    return f;
}

Fault Fault::corruptCrc(std::string op) {
    Fault f;
    f.op = std::move(op);
    f.kind = Kind::CorruptCrc;
    return f;
}

void FaultScript::add(Fault fault) {
    std::lock_guard lock(mutex_);
    auto op = fault.op.empty() ? std::string("*") : fault.op;
    queues_[op].push_back(std::move(fault));
}

std::optional<Fault> FaultScript::take(const std::string& operation, const std::string& path) {
    std::lock_guard lock(mutex_);
    for (const auto& name : {operation, std::string("*")}) {
        auto it = queues_.find(name);
        if (it == queues_.end() || it->second.empty()) continue;
        auto fault = it->second.front();
        it->second.pop_front();
        fired_.push_back({fault, operation, path});
        return fault;
    }
    return std::nullopt;
}

void FaultScript::clear() {
    std::lock_guard lock(mutex_);
    queues_.clear();
}

void FaultScript::reset() {
    std::lock_guard lock(mutex_);
    queues_.clear();
    fired_.clear();
}

std::size_t FaultScript::pending() const {
    std::lock_guard lock(mutex_);
    std::size_t n = 0;
    for (const auto& [_, q] : queues_) n += q.size();
    return n;
}

std::vector<FiredFault> FaultScript::fired() const {
    std::lock_guard lock(mutex_);
    return fired_;
}

std::size_t FaultScript::firedCount(const std::string& operation) const {
    std::lock_guard lock(mutex_);
    std::size_t n = 0;
    for (const auto& f : fired_)
        if (operation == "*" || f.operation == operation) ++n;
    return n;
}

}  // namespace quorvane::emulator
