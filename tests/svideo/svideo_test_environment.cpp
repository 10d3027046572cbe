// Keeps the short-video tests' persisted state (the resume cache) out of the user's own store.
#include "engine/engine_test_support.h"

static const auto* const registered =
    ::testing::AddGlobalTestEnvironment(new quorvane::test::UserDefaultsEnvironment);
