// Keeps the engine tests' persisted state out of the user's own store.
#include "engine_test_support.h"

static const auto* const registered =
    ::testing::AddGlobalTestEnvironment(new quorvane::test::UserDefaultsEnvironment);
