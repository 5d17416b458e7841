#pragma once

#include "tests/soak/soak_player.h"

#include <random>
#include <vector>

using KovaSoakRandom = std::mt19937;

/// What a player does from its connection on until just before it is parked. It
/// ends early when something goes wrong, which the score knows then.
using KovaSoakBehaviour = void (*)(KovaSoakPlayer *pPlayer, KovaSoakScore *pScore,
                                   KovaSoakRandom *pRandom);

struct KovaSoakScenario {
    const char *szName;
    unsigned nWeight; ///< how often, of all weights together
    KovaSoakBehaviour pfnBehave;
};

const std::vector<KovaSoakScenario> &KovaSoakScenarios();

/// One of them, by weight.
const KovaSoakScenario &KovaPickScenario(KovaSoakRandom *pRandom);
