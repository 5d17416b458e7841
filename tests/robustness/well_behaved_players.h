#pragma once

#include "tests/robustness/player.h"
#include "tests/robustness/process_state.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

/// A running server with media, two interleaved players of both tracks that
/// judge every byte, and somebody else to come who behaves otherwise.
class WellBehavedPlayers : public ::testing::Test {
protected:
    void SetUp() override;

    /// Ends every session but the players', as if its time had come.
    void ExpireStrangers();

    /// What there is, so that it can be compared with what there was. The
    /// strangers' connections must be closed.
    struct State {
        int nDescriptors;
        int nThreads;
        unsigned nHandlers;
        unsigned nSessions;
        size_t nAudioClients;
        size_t nVideoClients;
    };
    State Now();
    /// Expires the strangers and waits until everything is as it was.
    void ExpectGivenBack(const State &before);

    /// Packets of both tracks go on to all players, and nothing was wrong so far.
    void ExpectPlaying(int nMilliseconds = 10000);

    /// Ends the pushing, and waits until each player has every packet.
    void ExpectEverythingArrives(int nMilliseconds = 20000);

    /// Packets of each player, audio and video, and the smallest growth of these.
    std::vector<size_t> Counts();
    size_t LeastReceived(const std::vector<size_t> &before);

    KovaStdoutCapture capture;
    std::unique_ptr<KovaTestServer> server =
        std::make_unique<KovaTestServer>(KovaTestServerOptions{"live", 1000, true});
    std::unique_ptr<KovaMediaScript> script;
    std::vector<std::unique_ptr<KovaWatchingPlayer>> players;
};
