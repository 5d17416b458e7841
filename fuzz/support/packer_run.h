#pragma once

#include "classic/rtp/rtp_packer.h"
#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "tests/support/packer_model.h"

#include <memory>
#include <vector>

/// A packer of the library beside its model, fed with access units that the fuzzer makes.
///
/// Input, a sequence of pieces: 0 raw bytes (length byte first); 1 and 2 what the codec adds; 3 a
/// run (first byte, 16-bit length); 4 the end of a unit, which is pushed (time step, 32 bits, and
/// how many packets are taken before the next unit, 255: all).
class KovaPackerRun {
public:
    static constexpr uint8_t kPayloadType = 97;
    static constexpr uint32_t kSsrc = 0x12345678;

    KovaPackerRun(uint32_t nCodec, size_t nLargestPacket);
    virtual ~KovaPackerRun();
    KovaPackerRun(const KovaPackerRun &) = delete;
    KovaPackerRun &operator=(const KovaPackerRun &) = delete;

    void Run(const uint8_t *pData, size_t nSize);

protected:
    virtual std::unique_ptr<KovaPackerModel> MakeModel() = 0;
    virtual void AppendPiece(unsigned nKind, KovaFuzzInput *pInput, KovaBytes *pUnit) = 0;
    /// What of an access unit reaches a player, in order.
    virtual std::vector<KovaBytes> Expected(const KovaBytes &unit) = 0;
    /// Takes all packets of one access unit apart.
    virtual void Reassemble(const std::vector<KovaSeenPacket> &packets) = 0;
    /// Whether the packets of these pieces do not tell them apart, so that they cannot be compared.
    /// @param bEarly  a unit was pushed before the one before it had been drained
    virtual bool IsAmbiguous(const std::vector<KovaBytes> &pieces, bool bEarly) const = 0;

    /// One reassembled piece.
    void Take(const KovaBytes &piece)
    {
        m_seen.push_back(piece);
    }

private:
    static void OnStreamInfo(const uint8_t *pData, uint32_t nLength, uint32_t nKind,
                             uint32_t nPayloadId, void *pContext);
    void Push(const KovaBytes &unit, uint32_t nPts, unsigned nMost);
    bool TakePacket();
    void CompareUnit();

    KovaRtpPacker *m_pPacker;
    size_t m_nLargestPacket;
    std::unique_ptr<KovaPackerModel> m_pModel;
    std::vector<KovaSeenReport> m_reports;
    std::vector<KovaBytes> m_expected; ///< of the unit being drained
    std::vector<KovaBytes> m_seen;
    std::vector<KovaSeenPacket> m_packets;
    bool m_bEarly = false;
};
