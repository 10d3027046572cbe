// Keeps the engine tests' persisted state out of the user's own store.
#include <gtest/gtest.h>

#include "engine_test_support.h"
#include "foundation/user_defaults.h"

namespace {

class EngineEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        dir_ = std::make_unique<quorvane::test::TempDir>();
        quorvane::foundation::UserDefaults::setStandardPath(dir_->file("user-defaults.json"));
    }
    void TearDown() override { dir_.reset(); }

private:
    std::unique_ptr<quorvane::test::TempDir> dir_;
};

const auto* const registered = ::testing::AddGlobalTestEnvironment(new EngineEnvironment);

}  // namespace
