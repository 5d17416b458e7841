#pragma once

#include "tests/support/depacketizer.h"

#include <memory>
#include <string>

/// Checks what a player gets of one track of the soak's media: every packet in
/// order, every unit whole, every byte and timestamp as they were pushed. A
/// player may come in at any packet; from there on nothing may be missing.
class KovaTrackChecker {
public:
    /// 96 (sounds) or 97 (pictures).
    explicit KovaTrackChecker(int nTrack);

    /// Takes the next RTP packet.
    void Take(const std::string &packet);

    /// Units that were good.
    unsigned Good() const
    {
        return m_nGood;
    }
    /// What was wrong first; empty: nothing.
    std::string Complaint() const;

private:
    bool BeginsInsideUnit(const std::string &packet) const;
    void CheckUnit(const KovaReceivedUnit &unit);
    void Complain(const std::string &text);

    bool m_bVideo;
    std::unique_ptr<KovaDepacketizer> m_depacketizer;
    size_t m_nChecked = 0;
    unsigned m_nGood = 0;
    uint32_t m_nNumber = 0; ///< of the unit that comes next, once one has come
    unsigned m_nSlice = 0;
    std::string m_complaint;
};
