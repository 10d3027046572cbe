#pragma once
// Installs a scriptable reachability source for one test and restores the previous one after.
#include <memory>

#include "platform/headless/reachability_headless.h"

namespace quorvane::test {

class ScriptedReachability {
public:
    ScriptedReachability()
        : source_(std::make_shared<platform::headless::HeadlessReachabilitySource>()),
          previous_(platform::setReachabilitySource(source_)) {}
    ~ScriptedReachability() { platform::setReachabilitySource(previous_); }
    ScriptedReachability(const ScriptedReachability&) = delete;
    ScriptedReachability& operator=(const ScriptedReachability&) = delete;

    platform::headless::HeadlessReachabilitySource* operator->() { return source_.get(); }

private:
    std::shared_ptr<platform::headless::HeadlessReachabilitySource> source_;
    std::shared_ptr<platform::ReachabilitySource> previous_;
};

}  // namespace quorvane::test
