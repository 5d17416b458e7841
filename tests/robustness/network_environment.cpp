#include "tests/support/own_network.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

/// Servers of these tests hand out UDP ports, and some count descriptors: other
/// programs' sockets must not come in between.
class NetworkEnvironment : public ::testing::Environment {
public:
    void SetUp() override
    {
        if (!KovaUseOwnNetwork())
            fprintf(stderr, "no network of our own: other programs may take ports meanwhile\n");
    }
};

[[maybe_unused]] ::testing::Environment *const g_pEnvironment =
    ::testing::AddGlobalTestEnvironment(new NetworkEnvironment);

} // namespace
