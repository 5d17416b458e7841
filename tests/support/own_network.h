#pragma once

#include <cstdint>

/// Gives the process a network of its own with nothing but a loopback address,
/// so that no other program takes UDP ports from it. Threads made from now on
/// are in it. False where the system does not allow it: the process then stays
/// where it is.
bool KovaUseOwnNetwork();

/// The first even UDP port from nFrom on that is free together with the next
/// one; 0 when there is none.
uint16_t KovaFirstFreePair(uint16_t nFrom = 6970);

/// Holds UDP ports on any address while it lives.
class KovaHeldPort {
public:
    explicit KovaHeldPort(uint16_t nPort);
    ~KovaHeldPort();
    KovaHeldPort(const KovaHeldPort &) = delete;
    KovaHeldPort &operator=(const KovaHeldPort &) = delete;
    bool IsHeld() const
    {
        return m_nSocket >= 0;
    }

private:
    int m_nSocket;
};
