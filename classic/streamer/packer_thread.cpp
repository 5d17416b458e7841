#include "classic/streamer/packer_thread.h"

#include "classic/streamer/es_input.h"
#include "classic/streamer/registries.h"
#include "classic/streamer/streamer.h"
#include "foundation/kept_buffer.h"
#include "foundation/log.h"
#include "foundation/mutex.h"

namespace {

/// A push nudges the thread; this bounds the wait for what came without one.
constexpr uint32_t kIdleMilliseconds = 1000;

/// For a second after a record the thread looks more often, so that a stream whose host
/// writes into the ring itself goes on evenly. Pictures that are pushed come faster: they
/// cost no wake-up more.
constexpr uint32_t kBusyMilliseconds = 50;
constexpr uint32_t kBusyWaits = 20;

constexpr uint32_t kRestMilliseconds = 1;

/// Most packets that go to the sender together: as many as a batch has that is sent.
constexpr uint32_t kMostTogether = 64;

/// What one packer thread works on.
struct Packing {
    const char *szName;
    KovaRtspStreamer *pStreamer;
    KovaRingbuffer *pRing;
    KovaStateWord *pState;
    KovaEvent *pWork;
    KovaMutex *pUseMutex;
    KovaLockRank useRank;
};

/// An access unit taken out of the ring.
struct Unit {
    KovaEsHeader header;
    uint8_t *pData;
};

/// Takes the unit's data. The writer stores header and data in two steps, so
/// the rest may be a moment away; if it never comes, a stop request ends the wait.
bool ReadData(const Packing &packing, const Unit &unit)
{
    if (unit.header.nLength == 0)
        return true;
    const int32_t nLength = static_cast<int32_t>(unit.header.nLength);
    while (StreamerRingbufferRead(packing.pRing, unit.pData, nLength) != nLength) {
        if (!KovaThreadRuns(*packing.pState))
            return false;
        KovaEventWait(packing.pWork, kRestMilliseconds);
    }
    return true;
}

/// Builds the next packets, with a reference each, as many as there are and as go
/// together. Returns what ended that.
uint32_t BuildPackets(KovaRtpPacker *pPacker, KovaRtpPacket **ppPackets, uint32_t *pCount)
{
    uint32_t nResult = kPackerOk;
    for (*pCount = 0; *pCount < kMostTogether; (*pCount)++) {
        nResult = KovaRtpPackerNext(pPacker, &ppPackets[*pCount]);
        if (nResult != kPackerOk)
            break;
        KovaRtpPacketAddRef(ppPackets[*pCount]);
    }
    return nResult;
}

/// Hands the packets over together, so that the sending threads, which wake at the
/// first, find the others of its access unit as well.
void SendPackets(KovaRtpPacker *pPacker, KovaRtpSender *pSender)
{
    KovaRtpPacket *packets[kMostTogether];
    uint32_t nResult;
    do {
        uint32_t nCount = 0;
        nResult = BuildPackets(pPacker, packets, &nCount);
        KovaRtpSenderAddRtpPackets(pSender, packets, nCount);
        for (uint32_t nPacket = 0; nPacket < nCount; nPacket++)
            KovaRtpPacketReleaseRef(packets[nPacket]);
    } while (nResult == kPackerOk);
    // Short of memory in the middle of a unit: without its rest, or every later
    // unit would be refused because this one was never drained.
    if (nResult != kPackerNothing)
        KovaRtpPackerDiscard(pPacker);
}

void LogRefused(const Packing &packing, const Unit &unit, uint32_t nError)
{
    unsigned first[8] = {};
    for (uint32_t nIndex = 0; nIndex < 8 && nIndex < unit.header.nLength; nIndex++)
        first[nIndex] = unit.pData[nIndex];
    TimeLog(kLogFailure,
            "%s, KovaRtpPackerPushData Fail !!!, Error: %d, %2X %2X %2X %2X %2X %2X %2X %2X\n",
            packing.szName, static_cast<int>(nError), first[0], first[1], first[2], first[3],
            first[4], first[5], first[6], first[7]);
}

/// Packetizes a unit. Returns false when its payload id has no packer or sender.
bool PackUnit(const Packing &packing, const Unit &unit)
{
    const KovaMutexLock useLock(packing.pUseMutex, packing.useRank);
    const uint32_t nId = unit.header.nPayloadId;
    KovaRtpPacker *pPacker = KovaRtspStreamerGetRtpPackerByPayloadId(packing.pStreamer, nId);
    if (pPacker == nullptr) {
        // Frozen: the line names the removal, though it is a lookup that found nothing.
        TimeLog(kLogFailure, "%s, KovaRtspStreamerRemoveRtpPackerByPayloadId Fail !!!\n",
                packing.szName);
        return false;
    }
    KovaRtpSender *pSender = KovaRtspStreamerGetRtpSenderByPayloadId(packing.pStreamer, nId);
    if (pSender == nullptr) {
        TimeLog(kLogFailure, "%s, KovaRtspStreamerGetRtpSenderByPayloadId Fail !!!\n",
                packing.szName);
        return false;
    }
    const uint32_t nResult = KovaRtpPackerTake(pPacker, unit.pData, unit.pData, unit.header.nLength,
                                               unit.header.nTimestamp);
    if (nResult == kPackerOk)
        SendPackets(pPacker, pSender);
    else
        LogRefused(packing, unit, nResult);
    return true;
}

/// The record behind a header that was taken; its data goes through pRoom. Returns
/// false when the thread is to end.
bool HandleRecord(const Packing &packing, const uint8_t *pHeader, KovaKeptBuffer *pRoom)
{
    if (pHeader[0] != kEsStartCode) {
        TimeLog(kLogFailure, "%s, StartCode Wrong !!!, (0x%X)\n", packing.szName, pHeader[0]);
        return false;
    }
    Unit unit = {KovaEsHeaderRead(pHeader), nullptr};
    if (!KovaKeptBufferReserve(pRoom, unit.header.nLength, 0)) {
        TimeLog(kLogFailure, "%s, Allocate Es Data Buf Fail !!!\n", packing.szName);
        return false;
    }
    unit.pData = pRoom->pBytes;
    bool bGoOn = ReadData(packing, unit);
    if (bGoOn)
        bGoOn = PackUnit(packing, unit);
    else
        TimeLog(kLogFailure, "%s, Read Es Data Buf Fail !!!\n", packing.szName);
    return bGoOn;
}

void *RunPacker(const Packing &packing)
{
    uint8_t header[kEsHeaderSize];
    KovaKeptBuffer room = {};
    uint32_t nWaits = 0;
    while (KovaThreadRuns(*packing.pState)) {
        if (StreamerRingbufferRead(packing.pRing, header, kEsHeaderSize) == 0) {
            const bool bBusy = nWaits < kBusyWaits;
            nWaits += bBusy ? 1 : 0;
            KovaEventWait(packing.pWork, bBusy ? kBusyMilliseconds : kIdleMilliseconds);
            continue;
        }
        nWaits = 0;
        if (!HandleRecord(packing, header, &room))
            break;
    }
    KovaKeptBufferFree(&room);
    packing.pState->store(kThreadStopped);
    TimeLog(kLogThread, "%s, Leave thread\n", packing.szName);
    return nullptr;
}

/// Whether a thread has a stream to work on.
bool Enter(const char *szName, const void *pStreamer)
{
    TimeLog(kLogThread, "%s, Enter thread\n", szName);
    if (pStreamer == nullptr)
        TimeLog(kLogThread, "%s, Leave thread(pStreamer)\n", szName);
    return pStreamer != nullptr;
}

void SetMediaInfo(const uint8_t *pData, uint32_t nLength, uint32_t nInfoType, uint32_t nPayloadId,
                  void *pContext)
{
    const KovaRtspStreamer *pStreamer = static_cast<KovaRtspStreamer *>(pContext);
    if (pData != nullptr && pStreamer != nullptr)
        KovaRtspSdpGeneratorSetMediaInfo(pStreamer->pSdpGenerator, nPayloadId, nInfoType, pData,
                                         nLength);
}

} // namespace

void *pAudioPackerProc(void *pArgument)
{
    if (!Enter("pAudioPackerProc", pArgument))
        return nullptr;
    KovaRtspStreamer *pStreamer = static_cast<KovaRtspStreamer *>(pArgument);
    return RunPacker({"pAudioPackerProc", pStreamer, &pStreamer->audioRing,
                      &pStreamer->nAudioPackerState, &pStreamer->audioWork,
                      &pStreamer->audioUseMutex, kRankAudioUse});
}

void *pVideoPackerProc(void *pArgument)
{
    if (!Enter("pVideoPackerProc", pArgument))
        return nullptr;
    KovaRtspStreamer *pStreamer = static_cast<KovaRtspStreamer *>(pArgument);
    return RunPacker({"pVideoPackerProc", pStreamer, &pStreamer->videoRing,
                      &pStreamer->nVideoPackerState, &pStreamer->videoWork,
                      &pStreamer->videoUseMutex, kRankVideoUse});
}

void pAudioStreamInfoCallback(const uint8_t *pData, uint32_t nLength, uint32_t nInfoType,
                              uint32_t nPayloadId, void *pContext)
{
    SetMediaInfo(pData, nLength, nInfoType, nPayloadId, pContext);
}

void pVideoStreamInfoCallback(const uint8_t *pData, uint32_t nLength, uint32_t nInfoType,
                              uint32_t nPayloadId, void *pContext)
{
    SetMediaInfo(pData, nLength, nInfoType, nPayloadId, pContext);
}
