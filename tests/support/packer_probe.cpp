#include "tests/support/packer_probe.h"

#include "tests/support/c_calls.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace {

/// More packets than any unit of a test makes.
constexpr int kMostPackets = 10000;

/// Bytes in memory of their own, right in front of a page without any rights.
class KovaGuardedBytes {
public:
    explicit KovaGuardedBytes(const KovaBytes &bytes)
    {
        const size_t nPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t nRoom = (bytes.size() + nPage - 1) / nPage * nPage;
        m_nMapped = nRoom + nPage;
        // Not one of the allocations that a test lets fail.
        void *pMapped = __real_mmap(nullptr, m_nMapped, PROT_READ | PROT_WRITE,
                                    MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pMapped == MAP_FAILED)
            abort();
        m_pMapped = static_cast<uint8_t *>(pMapped);
        if (mprotect(m_pMapped + nRoom, nPage, PROT_NONE) != 0)
            abort();
        m_pBytes = m_pMapped + nRoom - bytes.size();
        std::copy(bytes.begin(), bytes.end(), m_pBytes);
    }
    ~KovaGuardedBytes()
    {
        munmap(m_pMapped, m_nMapped);
    }
    KovaGuardedBytes(const KovaGuardedBytes &) = delete;
    KovaGuardedBytes &operator=(const KovaGuardedBytes &) = delete;

    const uint8_t *Data() const
    {
        return m_pBytes;
    }

private:
    uint8_t *m_pMapped;
    uint8_t *m_pBytes;
    size_t m_nMapped;
};

uint32_t BigEndian(const KovaBytes &bytes, size_t nFrom, size_t nCount)
{
    uint32_t nValue = 0;
    for (size_t n = 0; n < nCount; n++)
        nValue = nValue << 8 | bytes.at(nFrom + n);
    return nValue;
}

} // namespace

KovaPackerProbe::KovaPackerProbe(uint32_t nCodec, uint32_t nPayloadType, uint32_t nSsrc,
                                 bool bCallback)
    : m_nPayloadType(nPayloadType)
{
    const auto pfnCreate = nCodec == 1 ? KovaRtpAudioPackerCreate : KovaRtpVideoPackerCreate;
    m_pPacker = pfnCreate(nCodec, nPayloadType, nSsrc, bCallback ? &OnStreamInfo : nullptr, this);
    if (m_pPacker == nullptr)
        abort();
}

KovaPackerProbe::~KovaPackerProbe()
{
    KovaRtpPackerDestroy(m_pPacker);
}

void KovaPackerProbe::OnStreamInfo(const uint8_t *pData, uint32_t nLength, uint32_t nKind,
                                   uint32_t nPayloadId, void *pContext)
{
    KovaPackerProbe *pProbe = static_cast<KovaPackerProbe *>(pContext);
    EXPECT_EQ(nPayloadId, pProbe->m_nPayloadType);
    pProbe->reports.push_back({KovaBytes(pData, pData + nLength), nKind});
}

uint32_t KovaPackerProbe::Push(const KovaBytes &unit, uint32_t nPts)
{
    const KovaGuardedBytes guarded(unit);
    return KovaRtpPackerPushData(m_pPacker, guarded.Data(), static_cast<uint32_t>(unit.size()),
                                 nPts);
}

std::optional<KovaSeenPacket> KovaPackerProbe::Next()
{
    KovaRtpPacket *pPacket = nullptr;
    const uint32_t nResult = KovaRtpPackerGetRtpPacket(m_pPacker, &pPacket);
    if (nResult != 0) {
        EXPECT_EQ(nResult, 0x80100005U);
        EXPECT_EQ(pPacket, nullptr);
        return std::nullopt;
    }
    EXPECT_EQ(pPacket->nRefCount, 0);
    const KovaSeenPacket seen = {KovaBytes(pPacket->pData, pPacket->pData + pPacket->nSize),
                                 pPacket->nFrameType, pPacket->nPts};
    KovaRtpFreePacket(pPacket);
    return seen;
}

std::vector<KovaSeenPacket> KovaPackerProbe::Drain()
{
    std::vector<KovaSeenPacket> packets;
    for (int n = 0; n < kMostPackets; n++) {
        std::optional<KovaSeenPacket> packet = Next();
        if (!packet)
            return packets;
        packets.push_back(*packet);
    }
    ADD_FAILURE() << "the packer does not come to an end";
    return packets;
}

std::vector<KovaSeenPacket> KovaPackerProbe::Pack(const KovaBytes &unit, uint32_t nPts)
{
    EXPECT_EQ(Push(unit, nPts), 0U);
    return Drain();
}

std::vector<KovaBytes> KovaPackerProbe::PayloadsOf(const KovaBytes &unit)
{
    std::vector<KovaBytes> payloads;
    for (const KovaSeenPacket &packet : Pack(unit))
        payloads.push_back(KovaPayloadOf(packet));
    return payloads;
}

KovaRtpFields KovaRtpFieldsOf(const KovaSeenPacket &packet)
{
    const KovaBytes &bytes = packet.bytes;
    return {bytes.at(0),
            (bytes.at(1) & 0x80) != 0,
            static_cast<uint8_t>(bytes.at(1) & 0x7F),
            static_cast<uint16_t>(BigEndian(bytes, 2, 2)),
            BigEndian(bytes, 4, 4),
            BigEndian(bytes, 8, 4)};
}

KovaBytes KovaPayloadOf(const KovaSeenPacket &packet)
{
    if (packet.bytes.size() < 12)
        return {};
    return KovaBytes(packet.bytes.begin() + 12, packet.bytes.end());
}

KovaBytes KovaJoin(const std::vector<KovaBytes> &parts)
{
    KovaBytes joined;
    for (const KovaBytes &part : parts)
        joined.insert(joined.end(), part.begin(), part.end());
    return joined;
}

KovaBytes KovaFilled(size_t nSize, uint8_t nFirst)
{
    KovaBytes bytes(nSize);
    for (size_t n = 0; n < nSize; n++)
        bytes[n] = static_cast<uint8_t>(2 + n % 251);
    if (nSize > 0)
        bytes[0] = nFirst;
    return bytes;
}
