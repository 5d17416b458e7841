#pragma once

#include "tests/soak/score.h"
#include "tests/support/rtsp_client.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <random>

/// A player of a server that may vanish at any moment: whatever fails, fails.
/// Only that the server's bytes are frames and responses is checked.
class KovaFirePlayer {
public:
    KovaFirePlayer(KovaSoakScore *pScore, uint16_t nPort, unsigned nSeed);

    /// One step after the other: connection, SETUP, PLAY, some media, perhaps
    /// TEARDOWN and another stream, and its end. False when there is no more.
    bool Step();

private:
    bool Request(KovaTestResponse response);
    void SetUp();
    void Play();
    void Watch();
    void Vanish();
    unsigned Draw(unsigned nCount);

    KovaSoakScore *m_pScore;
    const uint16_t m_nPort;
    std::mt19937 m_random;
    KovaRtspTestClient m_rtsp;
    std::unique_ptr<KovaUdpPair> m_ports[2];
    unsigned m_nStream;
    bool m_bUdp;
    unsigned m_nSwitches;
    unsigned m_nStep = 0;
};
