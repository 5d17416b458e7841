#include "fuzz/support/packer_run.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t kLargestUnit = 40000;
constexpr unsigned kAll = 255;

} // namespace

KovaPackerRun::KovaPackerRun(uint32_t nCodec, size_t nLargestPacket)
    : m_nLargestPacket(nLargestPacket)
{
    const auto pfnCreate = nCodec == 1 ? KovaRtpAudioPackerCreate : KovaRtpVideoPackerCreate;
    m_pPacker = pfnCreate(nCodec, kPayloadType, kSsrc, OnStreamInfo, this);
    KovaRequire(m_pPacker != nullptr, "a packer can be made");
}

KovaPackerRun::~KovaPackerRun()
{
    KovaRtpPackerDestroy(m_pPacker);
}

void KovaPackerRun::OnStreamInfo(const uint8_t *pData, uint32_t nLength, uint32_t nKind,
                                 uint32_t nPayloadId, void *pContext)
{
    KovaRequire(nPayloadId == kPayloadType, "a report names its payload");
    static_cast<KovaPackerRun *>(pContext)->m_reports.push_back(
        {KovaBytes(pData, pData + nLength), nKind});
}

void KovaPackerRun::Run(const uint8_t *pData, size_t nSize)
{
    m_pModel = MakeModel();
    KovaFuzzInput input(pData, nSize);
    KovaBytes unit;
    uint32_t nPts = 0;
    while (!input.IsEmpty()) {
        const unsigned nKind = input.Byte() % 5;
        if (nKind == 0) {
            const KovaBytes raw = input.Bytes(input.Byte());
            unit.insert(unit.end(), raw.begin(), raw.end());
        } else if (nKind == 3) {
            const uint8_t nFirst = input.Byte();
            const size_t nLength = input.Word();
            unit.push_back(nFirst);
            for (size_t n = 1; n < nLength % 10000; n++)
                unit.push_back(static_cast<uint8_t>(2 + n % 251));
        } else if (nKind == 4) {
            nPts += input.Long();
            Push(unit, nPts, input.Byte());
            unit.clear();
        } else {
            AppendPiece(nKind, &input, &unit);
        }
        unit.resize(std::min(unit.size(), kLargestUnit));
    }
    Push(unit, nPts, kAll);
}

void KovaPackerRun::Push(const KovaBytes &unit, uint32_t nPts, unsigned nMost)
{
    // A copy of its own, so that reading behind it is seen.
    const std::unique_ptr<uint8_t[]> pBytes(new uint8_t[unit.size()]);
    std::copy(unit.begin(), unit.end(), pBytes.get());
    const uint32_t nResult =
        KovaRtpPackerPushData(m_pPacker, pBytes.get(), static_cast<uint32_t>(unit.size()), nPts);
    KovaRequire(nResult == m_pModel->Push(unit, nPts), "a push is answered like the model's");
    KovaRequire(m_reports == m_pModel->reports, "reports equal the model's");
    KovaRequire(m_pPacker->nTimestamp == m_pModel->nTimestamp, "timestamps equal the model's");
    // A fragmented unit may still be under way: what is left of it belongs to the unit before.
    if (nResult != kPackerNotDrained)
        m_bEarly = m_bEarly || !m_expected.empty();
    if (nResult == kPackerOk) {
        const std::vector<KovaBytes> more = Expected(unit);
        m_expected.insert(m_expected.end(), more.begin(), more.end());
    }
    for (unsigned n = 0; n < nMost || nMost == kAll; n++) {
        if (!TakePacket()) {
            CompareUnit();
            return;
        }
    }
}

bool KovaPackerRun::TakePacket()
{
    KovaRtpPacket *pPacket = nullptr;
    const uint32_t nResult = KovaRtpPackerGetRtpPacket(m_pPacker, &pPacket);
    const std::optional<KovaSeenPacket> expected = m_pModel->Next();
    KovaRequire((nResult == kPackerOk) == expected.has_value(), "as many packets as the model's");
    KovaRequire(m_pPacker->nSequence == m_pModel->nSequence, "sequence numbers equal the model's");
    if (nResult != kPackerOk) {
        KovaRequire(nResult == kPackerNothing, "the end is told by its code");
        return false;
    }
    const KovaSeenPacket seen = {KovaBytes(pPacket->pData, pPacket->pData + pPacket->nSize),
                                 pPacket->nFrameType, pPacket->nPts};
    KovaRtpFreePacket(pPacket);
    KovaRequire(seen == *expected, "a packet equals the model's");
    KovaRequire(seen.bytes.size() >= 12 && seen.bytes.size() <= m_nLargestPacket,
                "a packet is not over its limit");
    m_packets.push_back(seen);
    return true;
}

void KovaPackerRun::CompareUnit()
{
    m_seen.clear();
    if (!IsAmbiguous(m_expected, m_bEarly)) {
        Reassemble(m_packets);
        KovaRequire(m_seen == m_expected, "packets put together again are the input");
    }
    m_packets.clear();
    m_expected.clear();
    m_bEarly = false;
}
