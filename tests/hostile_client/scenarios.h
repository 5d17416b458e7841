#pragma once

#include "tests/hostile_client/connection.h"

#include <string>
#include <vector>

/// One way to misbehave. Nothing of it is a crime of its own: a server that
/// listens gets all of this sooner or later.
struct KovaHostileScenario {
    const char *szName;
    const char *szWhat;
    /// Returns false when it could not be carried out, usually because the
    /// server does not take connections.
    bool (*pfnRun)(const KovaHostileTarget &target);
};

/// By what they abuse: the text of requests, connections, what is set up.
const std::vector<KovaHostileScenario> &KovaHostileRequestScenarios();
const std::vector<KovaHostileScenario> &KovaHostileConnectionScenarios();
const std::vector<KovaHostileScenario> &KovaHostileMediaScenarios();

/// All of them.
std::vector<KovaHostileScenario> KovaHostileScenarios();

/// The one with that name; null when there is none.
const KovaHostileScenario *KovaHostileFind(const std::string &name);
