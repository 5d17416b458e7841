#pragma once

#include "classic/rtp/rtp_client.h"
#include "classic/rtp/rtp_packet.h"
#include "foundation/event.h"
#include "foundation/export.h"
#include "foundation/list.h"
#include "foundation/mutex.h"
#include "foundation/thread.h"

#include <atomic>
#include <cstdint>

struct KovaRtpSender;

/// Storage of the two input rings, bytes; and the most that waits in a group of
/// the payload id that the ring is bound to.
constexpr int32_t kAudioRingSize = 2 * 1024 * 1024;
constexpr int32_t kVideoRingSize = 14 * 1024 * 1024;

/// Most clients of one group.
constexpr uint32_t kGroupMaxClients = 1000;

/// Clients of one payload that one sending thread serves from one queue of
/// packets. Producers take only packetMutex, the RTSP side only clientMutex;
/// the thread takes them one after the other, never both at once.
/// Frozen: callers from outside read the fields at these places; ours come last.
struct KovaRtpSendGroup {
    KovaRtpSender *pSender; ///< not owned
    KovaStateWord nState;
    /// Of KovaRtpPacket, oldest first; one reference each.
    KovaList *pPacketList KOVA_GUARDED_BY(packetMutex);
    KovaList *pPacketListTail KOVA_GUARDED_BY(packetMutex);
    KovaList *pClientList KOVA_GUARDED_BY(clientMutex); ///< of KovaRtpClient; owned
    KovaMutex packetMutex;
    KovaMutex clientMutex; ///< guards the clients' fields as well
    uint32_t nLastPts;     ///< of the previous packet; the thread's own

    KovaEvent work;                                    ///< packets or a stop request for the thread
    uint32_t nPass KOVA_GUARDED_BY(clientMutex);       ///< number of the batch being served
    uint32_t nLastSerial KOVA_GUARDED_BY(clientMutex); ///< last number given to a client
    std::atomic<uint32_t> nClientWaiters;              ///< threads that wait for clientMutex
    std::atomic<bool> bNoThread; ///< the last start failed: nobody empties the queue
    uint32_t nQueuedBytes KOVA_GUARDED_BY(packetMutex); ///< of the packets in pPacketList
    bool bDropping KOVA_GUARDED_BY(packetMutex);        ///< the queue was full
    /// Only what is later lets packets in again.
    uint32_t nDroppedPts KOVA_GUARDED_BY(packetMutex);
};

/// Makes a group without a thread. Null for a null sender or without memory.
KOVA_API KovaRtpSendGroup *KovaRtpSendGroupCreate(KovaRtpSender *pSender);

/// Destroys a group whose thread does not run, with its clients and one
/// reference of each queued packet. Null is ignored.
KOVA_API void KovaRtpSendGroupDestory(KovaRtpSendGroup *pGroup);

/// Starts the group's thread. 0, also when it runs already; 1 when it cannot be
/// made; 2 for null.
KOVA_API int32_t KovaRtpSendGroupStart(KovaRtpSendGroup *pGroup);

/// Asks the thread to stop and waits for it; a thread that is sending first sends
/// what is queued, on schedule. 0; 2 for null.
KOVA_API int32_t KovaRtpSendGroupStop(KovaRtpSendGroup *pGroup);

/// Adds a client, which the group owns from then on. Null is ignored.
KOVA_API void KovaRtpSendGroupAddRtpClient(KovaRtpSendGroup *pGroup, KovaRtpClient *pClient);

/// Unlinks a client without destroying it. Null is ignored.
KOVA_API void KovaRtpSendGroupRemoveRtpClient(KovaRtpSendGroup *pGroup, KovaRtpClient *pClient);

/// Unlinks and destroys every client. A session that plays and loses its last
/// client on the stream with it is counted out there. Null is ignored.
KOVA_API void KovaRtpSendGroupRemoveAllRtpClient(KovaRtpSendGroup *pGroup);

/// Queues a packet together with a reference that the caller has taken for the
/// group; one that is not queued loses that reference. Null is ignored.
///
/// The queue holds at most as many bytes as the ring of its payload id. A packet
/// that does not fit is dropped, with a line at level 2, and so are those behind it,
/// until one fits at which players can take up the stream again: a key frame or
/// audio, of a later PTS than the packets of that kind that were dropped. PTS are
/// compared as plain numbers; after a wrap, or a step back of the host's clock, it
/// takes one key frame more.
KOVA_API void KovaRtpSendGroupAddRtpPacket(KovaRtpSendGroup *pGroup, KovaRtpPacket *pPacket);

/// Unlinks a packet; its reference is the caller's again. Null is ignored.
KOVA_API void KovaRtpSendGroupRemoveRtpPacket(KovaRtpSendGroup *pGroup, KovaRtpPacket *pPacket);

/// Unlinks every packet and releases its reference. Null is ignored.
KOVA_API void KovaRtpSendGroupRemoveAllRtpPacket(KovaRtpSendGroup *pGroup);

/// As KovaRtpSendGroupAddRtpClient, but tells whether the group has taken it (there may
/// be no memory); when not, the client stays the caller's.
bool KovaRtpSendGroupTakeClient(KovaRtpSendGroup *pGroup, KovaRtpClient *pClient);

/// Queues those of nCount packets of one access unit that there is memory and room
/// for, under the rules of KovaRtpSendGroupAddRtpPacket: the reference to each that the
/// caller has taken becomes the group's, or is released. The counts are not touched
/// otherwise, so that a packet whose owner counts nothing survives being queued. The
/// thread sees all of them at once. Returns how many it has queued.
uint32_t KovaRtpSendGroupTakePackets(KovaRtpSendGroup *pGroup, KovaRtpPacket *const *ppPackets,
                                     uint32_t nCount);

/// Unlinks a packet; its reference is the caller's. Returns whether it was queued.
bool KovaRtpSendGroupUnlinkPacket(KovaRtpSendGroup *pGroup, KovaRtpPacket *pPacket)
    KOVA_REQUIRES(pGroup->packetMutex);

/// Number of clients.
uint32_t KovaRtpSendGroupClientCount(KovaRtpSendGroup *pGroup);

/// Holds a group's clients for the life of a scope, and lets the sending thread
/// see that somebody waits for them: with a long queue it would take them again at
/// once. Everybody but the sending thread holds them so.
class KOVA_SCOPED_CAPABILITY KovaClientLock {
public:
    explicit KovaClientLock(KovaRtpSendGroup *pGroup) KOVA_ACQUIRE(pGroup->clientMutex);
    ~KovaClientLock() KOVA_RELEASE();
    KovaClientLock(const KovaClientLock &) = delete;
    KovaClientLock &operator=(const KovaClientLock &) = delete;

private:
    KovaRtpSendGroup *m_pGroup;
};
