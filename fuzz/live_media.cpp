#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "kova_live.h"
#include "live/media/track_media.h"

#include <cstring>
#include <memory>

// Pushes into a track of the second engine: what is taken comes out in packets that a receiver can
// put together again, none of them over its limit; nothing is read outside of what was pushed; the
// description is whole or not there.
//
// Input: codec and form, the packet limit, then pieces: a kind and what it needs. Pieces are
// appended to the next push: bytes, zeros, start codes, an ADTS header for what follows; or the
// push is made.

namespace {

constexpr size_t kHeader = 12;
constexpr size_t kLargestPush = 100000;

struct Owner {
    KovaTrackMedia *pMedia = nullptr;
    ~Owner()
    {
        KovaTrackMediaDestroy(pMedia);
    }
};

/// The record that the first byte chooses.
KovaLiveTrackConfig ConfigOf(uint8_t nChoice, const std::vector<uint8_t> &given)
{
    KovaLiveTrackConfig config = {};
    config.size = sizeof(config);
    config.codec = (nChoice & 1) != 0 ? KOVA_LIVE_AAC : KOVA_LIVE_H264;
    const uint32_t nForm = nChoice >> 1 & 3;
    const uint32_t nSize = static_cast<uint32_t>(given.size());
    if (config.codec == KOVA_LIVE_AAC) {
        config.form = nForm == 1 ? KOVA_LIVE_FORM_RAW : KOVA_LIVE_FORM_ADTS;
        config.audio_config = given.data();
        config.audio_config_size = nSize;
        return config;
    }
    if (nForm != 0) {
        config.form = KOVA_LIVE_FORM_LENGTH;
        config.length_size = 1U << (nForm - 1);
    }
    if ((nChoice & 8) != 0) {
        config.sps = given.data();
        config.sps_size = nSize;
    } else {
        config.pps = given.data();
        config.pps_size = nSize;
    }
    return config;
}

/// Goes over the payload of an H.264 packet. @return whether fragments are open behind it.
bool CheckH264(const uint8_t *pPayload, size_t nSize, bool bOpen)
{
    const unsigned nType = pPayload[0] & 31;
    if (nType == 28) {
        KovaRequire(nSize > 2, "a fragment carries something");
        KovaRequire(((pPayload[1] & 0x80) == 0) == bOpen, "fragments start once");
        KovaRequire((pPayload[1] & 0xC0) != 0xC0, "there are two fragments at least");
        return (pPayload[1] & 0x40) == 0;
    }
    KovaRequire(!bOpen, "nothing comes between fragments");
    if (nType != 24) {
        KovaRequire(nType >= 1 && nType <= 23, "only what may be sent is");
        return false;
    }
    size_t nAt = 1;
    unsigned nCount = 0;
    for (; nAt < nSize; nCount++) {
        KovaRequire(nAt + 2 < nSize, "an aggregate is whole");
        const size_t nNal = size_t{pPayload[nAt]} << 8 | pPayload[nAt + 1];
        KovaRequire(nNal > 0 && nNal <= nSize - nAt - 2, "an aggregated unit is whole");
        nAt += 2 + nNal;
    }
    KovaRequire(nCount > 1, "an aggregate has several units");
    return false;
}

/// @param pLeft  bytes of the frame that are still to come
void CheckAac(const uint8_t *pPayload, size_t nSize, bool bMarker, size_t *pLeft)
{
    KovaRequire(nSize > 4, "a packet has a header and a frame");
    const size_t nCount = (size_t{pPayload[0]} << 8 | pPayload[1]) / 16;
    KovaRequire(nCount > 0 && 2 + 2 * nCount < nSize, "the headers are there");
    size_t nTold = 0;
    for (size_t n = 0; n < nCount; n++)
        nTold += (size_t{pPayload[2 + 2 * n]} << 8 | pPayload[3 + 2 * n]) >> 3;
    const size_t nHere = nSize - 2 - 2 * nCount;
    if (*pLeft == 0)
        *pLeft = nTold;
    KovaRequire(nHere == *pLeft || (nCount == 1 && nHere < *pLeft), "sizes are as told");
    *pLeft -= nHere;
    KovaRequire(bMarker == (*pLeft == 0), "the marker ends a frame");
}

void CheckUnit(const KovaTrackMedia *pMedia, const KovaUnit &unit, uint32_t nMaxPacket)
{
    bool bOpen = false;
    size_t nLeft = 0;
    uint32_t nOffset = 0;
    KovaRequire(unit.nPackets > 0, "a unit has packets");
    for (uint32_t n = 0; n < unit.nPackets; n++) {
        const KovaUnitPacket &packet = unit.pPackets[n];
        nOffset += 4;
        KovaRequire(packet.nOffset == nOffset, "packets lie one behind the other, as frames");
        KovaRequire(unit.pBytes[nOffset - 4] == '$', "with their headers");
        KovaRequire(packet.nSize > kHeader && packet.nSize <= nMaxPacket, "packets are in limits");
        nOffset += packet.nSize;
        // A copy of its own: whoever read outside of it would be seen.
        const std::vector<uint8_t> bytes(unit.pBytes + packet.nOffset, unit.pBytes + nOffset);
        const bool bMarker = bytes[1] >= 0x80;
        const bool bLast = n + 1 == unit.nPackets;
        const size_t nPayload = bytes.size() - kHeader;
        if (KovaTrackMediaCodec(pMedia) == KOVA_LIVE_AAC) {
            CheckAac(bytes.data() + kHeader, nPayload, bMarker, &nLeft);
        } else {
            bOpen = CheckH264(bytes.data() + kHeader, nPayload, bOpen);
            KovaRequire(bMarker == bLast, "the marker ends a unit");
        }
    }
    KovaRequire(nOffset == unit.nBytes + 4 * unit.nPackets, "the bytes are counted");
    KovaRequire(!bOpen && nLeft == 0, "the last fragment is there");
}

void Describe(const KovaTrackMedia *pMedia, size_t nCapacity)
{
    std::vector<char> text(nCapacity);
    size_t nLength = 0;
    if (KovaTrackMediaDescribe(pMedia, text.data(), text.size(), &nLength)) {
        KovaRequire(KovaTrackMediaKnown(pMedia), "what is described is known");
        KovaRequire(strlen(text.data()) == nLength, "the text ends where it is told to");
    } else {
        KovaRequire(nLength == 0, "no half description");
    }
}

void Push(KovaTrackMedia *pMedia, const std::vector<uint8_t> &data, int64_t nPts,
          uint32_t nMaxPacket)
{
    // Not a vector's own block, which may be larger than what is in it.
    const std::unique_ptr<uint8_t[]> copy(new uint8_t[data.size()]);
    if (!data.empty())
        memcpy(copy.get(), data.data(), data.size());
    KovaUnit *pUnit = nullptr;
    const int32_t nResult = KovaTrackMediaCut(pMedia, copy.get(), data.size(), nPts, &pUnit);
    KovaRequire(nResult == KOVA_LIVE_OK || pUnit == nullptr, "what is refused is not sent");
    if (pUnit != nullptr)
        CheckUnit(pMedia, *pUnit, nMaxPacket);
    KovaUnitRelease(pUnit);
}

void AppendAdts(KovaFuzzInput *pInput, std::vector<uint8_t> *pData)
{
    const uint8_t nKind = pInput->Byte();
    const uint32_t nFrame = pInput->Below(2000);
    const uint32_t nLength = nFrame + 7;
    const uint8_t header[] = {0xFF,
                              0xF1,
                              static_cast<uint8_t>(0x40 | (nKind & 15) << 2),
                              static_cast<uint8_t>((nKind >> 4 & 3) << 6 | nLength >> 11),
                              static_cast<uint8_t>(nLength >> 3),
                              static_cast<uint8_t>(nLength << 5 | 0x1F),
                              0xFC};
    pData->insert(pData->end(), header, header + sizeof(header));
    pData->insert(pData->end(), nFrame, 0x5A);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    KovaFuzzInput input(pData, nSize);
    const uint8_t nChoice = input.Byte();
    const uint32_t nMaxPacket = 64 + input.Below(3000);
    const std::vector<uint8_t> given = input.Bytes(input.Byte() % 72);
    Owner owner;
    const KovaLiveTrackConfig config = ConfigOf(nChoice, given);
    if (KovaTrackMediaCreate(config, 96, 0, nMaxPacket, &owner.pMedia) != KOVA_LIVE_OK)
        return 0;
    std::vector<uint8_t> unit;
    while (!input.IsEmpty() && unit.size() < kLargestPush) {
        const uint8_t nKind = input.Byte();
        switch (nKind & 7) {
        case 0:
            Push(owner.pMedia, unit, static_cast<int64_t>(input.Long()) << (nKind >> 3),
                 nMaxPacket);
            Describe(owner.pMedia, 1 + size_t{nKind} * 40);
            unit.clear();
            break;
        case 1:
            unit.insert(unit.end(), {0, 0, 1});
            break;
        case 2:
            unit.insert(unit.end(), nKind >> 3, 0);
            break;
        case 3:
            AppendAdts(&input, &unit);
            break;
        case 4:
            unit.insert(unit.end(), input.Below(4000), static_cast<uint8_t>(nKind | 1));
            break;
        default: {
            const std::vector<uint8_t> bytes = input.Bytes(nKind >> 3);
            unit.insert(unit.end(), bytes.begin(), bytes.end());
        }
        }
    }
    Push(owner.pMedia, unit, 0, nMaxPacket);
    return 0;
}
