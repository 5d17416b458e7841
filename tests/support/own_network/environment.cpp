#include "tests/support/own_network.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

/// The servers of these tests hand out UDP ports, which the tests know beforehand:
/// other programs' sockets must not come in between.
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
