#pragma once

#include "classic/rtp/rtp_client.h"
#include "classic/rtp/rtp_packet.h"
#include "classic/rtp/send_group.h"
#include "foundation/export.h"
#include "foundation/list.h"
#include "foundation/mutex.h"

#include <atomic>
#include <cstdint>

struct KovaRtspStreamer;

/// Fans the packets of one payload out to its send groups and places clients
/// into them.
/// Frozen: callers from outside read the fields at these places; ours come last.
struct KovaRtpSender {
    KovaRtspStreamer *pStreamer; ///< not owned
    uint32_t nPayloadId;
    uint32_t nSendGroupCount;                        ///< groups made at creation; not updated later
    KovaList *pSendGroupList KOVA_GUARDED_BY(mutex); ///< of KovaRtpSendGroup, oldest first; owned
    KovaList *pSendGroupListTail KOVA_GUARDED_BY(mutex);
    KovaMutex mutex;
    /// Sequence number and RTP timestamp of the packet that a group's thread
    /// took last: what PLAY answers.
    std::atomic<uint16_t> nLastSequence;
    std::atomic<uint32_t> nLastTimestamp;
};

/// Makes a sender with one group that is not started. Null for a null streamer
/// or without memory.
KOVA_API KovaRtpSender *KovaRtpSenderCreate(KovaRtspStreamer *pStreamer, uint32_t nPayloadId);

/// Stops and destroys every group, then the sender. Null is ignored.
KOVA_API void KovaRtpSenderDestory(KovaRtpSender *pSender);

/// Starts or stops every group. 0; 2 for null. A stop waits for the groups'
/// threads without holding the sender's mutex.
KOVA_API int32_t KovaRtpSenderStart(KovaRtpSender *pSender);
KOVA_API int32_t KovaRtpSenderStop(KovaRtpSender *pSender);

/// Makes a client (arguments as for KovaRtpClientCreate) and places it into a
/// group: the first with fewer clients than the next one, else the last one, or
/// a new one when all are full. Null sender is ignored.
KOVA_API void KovaRtpSenderAddRtpClient(KovaRtpSender *pSender, const char *szSessionId,
                                        int32_t nRtpSocket, int32_t nRtcpSocket,
                                        uint16_t nClientRtpPort, uint16_t nClientRtcpPort,
                                        sockaddr_in clientAddress, int32_t nInterleaved,
                                        int *pTcpSocket, uint16_t nRtpChannel,
                                        uint16_t nRtcpChannel, uint16_t nStartSequence,
                                        uint32_t nStartTimestamp);

/// Queues a packet in every group, with a reference each. Null is ignored.
KOVA_API void KovaRtpSenderAddRtpPacket(KovaRtpSender *pSender, KovaRtpPacket *pPacket);

/// Queues nCount packets of one access unit, in order, each as that does. No sending
/// thread sees some of them without the others.
void KovaRtpSenderAddRtpPackets(KovaRtpSender *pSender, KovaRtpPacket *const *ppPackets,
                                uint32_t nCount);

/// Appends or unlinks a group. Null is ignored.
KOVA_API void KovaRtpSenderAddRtpSendGroup(KovaRtpSender *pSender, KovaRtpSendGroup *pGroup);
KOVA_API void KovaRtpSenderRemoveRtpSendGroup(KovaRtpSender *pSender, KovaRtpSendGroup *pGroup);

/// Unlinks, stops and destroys every group. Null is ignored.
KOVA_API void KovaRtpSenderRemoveAllRtpSendGroup(KovaRtpSender *pSender);

/// Starts or stops each group in list order. Null is ignored.
KOVA_API void KovaRtpSenderStartAllRtpSendGroup(KovaRtpSender *pSender);
KOVA_API void KovaRtpSenderStopAllRtpSendGroup(KovaRtpSender *pSender);

/// Places a client that the caller has made; returns false, and leaves it the
/// caller's, when no group could take it.
bool KovaRtpSenderPlaceClient(KovaRtpSender *pSender, KovaRtpClient *pClient);
