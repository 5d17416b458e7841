#include "fuzz/support/packer_run.h"

// Access units through the H.264 packer: packets, codes and reports equal the model's byte for
// byte, no packet is over its limit, and the packets put together again are the units of the
// input, less what is dropped on purpose.
//
// Input: a sequence of pieces (see KovaPackerRun); 1 and 2 append a start code of 3 or 4 bytes.

namespace {

constexpr size_t kHeader = 12;
constexpr size_t kLargestPacket = 1413;

class H264Run : public KovaPackerRun {
public:
    H264Run() : KovaPackerRun(2, kLargestPacket) {}

protected:
    std::unique_ptr<KovaPackerModel> MakeModel() override
    {
        return std::make_unique<KovaH264Model>(kPayloadType, kSsrc);
    }

    void AppendPiece(unsigned nKind, KovaFuzzInput *, KovaBytes *pUnit) override
    {
        if (nKind == 2)
            pUnit->push_back(0);
        pUnit->insert(pUnit->end(), {0, 0, 1});
    }

    /// The units between start codes: cut before every 00 00 01, with a zero before that belonging
    /// to the start code. Parameter sets count only as the last one.
    std::vector<KovaBytes> Expected(const KovaBytes &unit) override
    {
        std::vector<KovaBytes> units;
        size_t nBegin = FindCode(unit, 0);
        while (nBegin != unit.size()) {
            const size_t nFirst = nBegin + 3;
            const size_t nCode = FindCode(unit, nFirst);
            size_t nEnd = nCode;
            if (nCode != unit.size() && nCode > nFirst && unit[nCode - 1] == 0)
                nEnd--;
            if (nCode == unit.size())
                nEnd = unit.size();
            const KovaBytes nal(unit.begin() + static_cast<ptrdiff_t>(nFirst),
                                unit.begin() + static_cast<ptrdiff_t>(nEnd));
            const bool bLast = nCode == unit.size();
            if (!nal.empty() && IsKept(nal[0] & 31, bLast))
                units.push_back(nal);
            nBegin = nCode;
        }
        return units;
    }

    void Reassemble(const std::vector<KovaSeenPacket> &packets) override
    {
        for (const KovaSeenPacket &packet : packets) {
            KovaRequire(packet.bytes.size() > kHeader, "a packet has a payload");
            const uint8_t nType = packet.bytes[kHeader] & 31;
            if (m_bOpen)
                KovaRequire(nType == 28, "nothing comes between fragments");
            if (nType == 28)
                TakeFragment(packet.bytes);
            else if (nType == 24)
                TakeAggregate(packet.bytes);
            else
                Take(KovaBytes(packet.bytes.begin() + kHeader, packet.bytes.end()));
        }
    }

    bool IsAmbiguous(const std::vector<KovaBytes> &nals, bool) const override
    {
        return std::any_of(nals.begin(), nals.end(), [](const KovaBytes &nal) {
            return (nal[0] & 31) == 28 || (nal[0] & 31) == 24;
        });
    }

private:
    static bool IsKept(int nType, bool bLast)
    {
        return nType != 6 && nType != 9 && (bLast || (nType != 7 && nType != 8));
    }

    /// The next 00 00 01 that counts; the end when there is none.
    static size_t FindCode(const KovaBytes &unit, size_t nFrom)
    {
        for (size_t n = nFrom; n + 2 < unit.size(); n++) {
            if (unit[n] != 0 || unit[n + 1] != 0 || unit[n + 2] != 1)
                continue;
            const size_t nCodeBegin = n > nFrom && unit[n - 1] == 0 ? n - 1 : n;
            return nCodeBegin + 3 < unit.size() ? n : unit.size();
        }
        return unit.size();
    }

    void TakeFragment(const KovaBytes &bytes)
    {
        KovaRequire(bytes.size() > kHeader + 2, "a fragment carries something");
        const uint8_t nFu = bytes[kHeader + 1];
        KovaRequire(((nFu & 0x80) != 0) != m_bOpen, "fragments start once");
        if (!m_bOpen)
            m_fragmented = {static_cast<uint8_t>((bytes[kHeader] & 0xE0) | (nFu & 31))};
        m_fragmented.insert(m_fragmented.end(), bytes.begin() + kHeader + 2, bytes.end());
        m_bOpen = (nFu & 0x40) == 0;
        if (!m_bOpen)
            Take(m_fragmented);
    }

    void TakeAggregate(const KovaBytes &bytes)
    {
        size_t nAt = kHeader + 1;
        while (nAt < bytes.size()) {
            KovaRequire(nAt + 2 <= bytes.size(), "an aggregate is whole");
            const size_t nSize = size_t{bytes[nAt]} << 8 | bytes[nAt + 1];
            nAt += 2;
            KovaRequire(nAt + nSize <= bytes.size(), "an aggregated unit is whole");
            Take(KovaBytes(bytes.begin() + static_cast<ptrdiff_t>(nAt),
                           bytes.begin() + static_cast<ptrdiff_t>(nAt + nSize)));
            nAt += nSize;
        }
    }

    bool m_bOpen = false;
    KovaBytes m_fragmented;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    H264Run().Run(pData, nSize);
    return 0;
}
