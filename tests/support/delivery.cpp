#include "tests/support/delivery.h"

#include "classic/rtsp/server_calls.h"
#include "classic/rtsp/session.h"
#include "classic/server/session_registry.h"
#include "classic/streamer/registries.h"
#include "foundation/byte_order.h"
#include "foundation/log.h"
#include "foundation/mutex.h"
#include "kova_rtsp_server.h"
#include "tests/support/ready_stream.h"
#include "tests/support/rtsp_text.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

KovaBytes KovaPacketBytes(const KovaPacketPlan &plan)
{
    KovaBytes bytes(plan.nSize);
    for (uint32_t n = 0; n < plan.nSize; n++)
        bytes[n] = static_cast<uint8_t>(n * 7 + plan.nSequence * 31);
    if (plan.nSize >= 12) {
        bytes[0] = 0x80;
        bytes[1] = 97;
        RtspWriteMB(&bytes[2], plan.nSequence, 16);
        RtspWriteMB(&bytes[4], plan.nTimestamp, 32);
    }
    return bytes;
}

KovaRtpPacket *KovaMakePacket(const KovaPacketPlan &plan)
{
    const KovaBytes bytes = KovaPacketBytes(plan);
    KovaRtpPacket *pPacket = KovaRtpPacketAlloc();
    pPacket->pData = static_cast<uint8_t *>(malloc(bytes.size()));
    memcpy(pPacket->pData, bytes.data(), bytes.size());
    pPacket->nSize = plan.nSize;
    pPacket->nFrameType = plan.nFrameType;
    pPacket->nPts = plan.nPts;
    return pPacket;
}

int32_t KovaReferences(KovaRtpPacket *pPacket)
{
    const KovaMutexLock lock(&pPacket->mutex, kRankLeaf);
    return pPacket->nRefCount;
}

KovaBytes KovaFrameOf(uint8_t nChannel, const KovaBytes &packet)
{
    const std::string frame = KovaInterleaved(nChannel, std::string(packet.begin(), packet.end()));
    return KovaBytes(frame.begin(), frame.end());
}

KovaDelivery::KovaDelivery()
{
    char szAddress[KOVA_ADDRESS_SIZE] = "127.0.0.1";
    pServer = KovaRtspServerCreate(szAddress, 1, 16);
    pStream = KovaPublishAudioVideo(pServer, "live");
    EXPECT_NE(pStream, nullptr);
    nSsrc = KovaRtspStreamerGetRtpPackerByPayloadId(pStream, 97)->nSsrc;
    pSender = KovaRtpSenderCreate(pStream, 97);
}

KovaDelivery::~KovaDelivery()
{
    KovaRtpSenderDestory(pSender);
    KovaRtspServerDestroy(pServer);
    RTSP_SetLogLevel(2);
}

KovaRtpSendGroup *KovaDelivery::Group()
{
    return static_cast<KovaRtpSendGroup *>(pSender->pSendGroupList->data);
}

KovaRtpClient *KovaDelivery::Add(KovaRtpClient *pClient, int32_t nState)
{
    pClient->nState = nState;
    EXPECT_TRUE(KovaRtpSenderPlaceClient(pSender, pClient));
    return pClient;
}

void KovaDelivery::Queue(const KovaPacketPlan &plan)
{
    KovaRtpPacket *pPacket = KovaMakePacket(plan);
    KovaRtpPacketAddRef(pPacket);
    KovaRtpSenderAddRtpPacket(pSender, pPacket);
    KovaRtpPacketReleaseRef(pPacket);
}

bool KovaDelivery::Drain()
{
    return KovaWaitUntil([this] {
        pthread_mutex_lock(&Group()->packetMutex.native);
        const bool bEmpty = Group()->pPacketList == nullptr;
        pthread_mutex_unlock(&Group()->packetMutex.native);
        return bEmpty;
    });
}

bool KovaDelivery::Send(const KovaPacketPlan &plan)
{
    Queue(plan);
    if (Group()->nState == 0)
        KovaRtpSendGroupStart(Group());
    return Drain();
}

void KovaDelivery::WithClients(const std::function<void()> &action)
{
    const KovaClientLock lock(Group());
    action();
}

bool KovaDelivery::Has(const KovaRtpClient *pClient)
{
    bool bFound = false;
    WithClients([&] {
        for (KovaList *pNode = Group()->pClientList; pNode != nullptr; pNode = pNode->next)
            bFound = bFound || pNode->data == pClient;
    });
    return bFound;
}

void KovaDelivery::AddSession(const std::string &id)
{
    char szId[kSessionIdSize] = {};
    strncpy(szId, id.c_str(), sizeof(szId) - 1);
    EXPECT_EQ(AddNewRtspSession(pServer, szId, 60), 0);
    EXPECT_EQ(szId, id);
}

bool KovaDelivery::HasSession(const std::string &id)
{
    return KovaRtspServerGetSessionBySessionId(pServer, id.c_str()) != nullptr;
}
