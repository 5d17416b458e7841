#include "tests/support/own_network.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

/// Every test of this program names the ports that a server is to find, and so
/// must be alone with them.
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
