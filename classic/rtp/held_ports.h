#pragma once

#include <cstdint>

/// The even UDP ports that clients hold. A search for a free pair passes over
/// them without asking the system, so that a player costs the same among many as
/// among few. Any thread.

/// Notes the port of a client's RTP socket until KovaHeldPortsRelease.
/// @return the port; 0 when it is not noted: no socket of IPv4, or an odd port.
uint16_t KovaHeldPortsNote(int nSocket);

/// Takes a noted port back; 0 is ignored.
void KovaHeldPortsRelease(uint16_t nPort);

/// Whether a client holds the port.
bool KovaHeldPortsHave(uint16_t nPort);
