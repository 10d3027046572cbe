// Keeps the tests' persisted state (the resume cache) out of the user's own store.
#include <gtest/gtest.h>

#include <memory>

#include "foundation/user_defaults.h"
#include "svideo_test_support.h"

namespace {

class SVideoEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        dir_ = std::make_unique<quorvane::test::TempDir>();
        quorvane::foundation::UserDefaults::setStandardPath(dir_->file("user-defaults.json"));
    }
    void TearDown() override { dir_.reset(); }

private:
    std::unique_ptr<quorvane::test::TempDir> dir_;
};

const auto* const registered = ::testing::AddGlobalTestEnvironment(new SVideoEnvironment);

}  // namespace
