#pragma once

#include "classic/rtp/rtp_packet.h"
#include "classic/rtp/sender.h"
#include "classic/streamer/streamer.h"
#include "tests/support/packer_model.h"
#include "tests/support/wait_until.h"

#include <functional>
#include <string>

struct KovaRtspServer;

/// The header fields and the rest of a packet for a send group.
struct KovaPacketPlan {
    uint16_t nSequence = 1;
    uint32_t nTimestamp = 90000;
    uint32_t nPts = 1000;
    uint32_t nFrameType = kFrameKey;
    uint32_t nSize = 40; ///< header included
};

/// A packet to this plan, without a reference.
KovaRtpPacket *KovaMakePacket(const KovaPacketPlan &plan);

/// Its bytes.
KovaBytes KovaPacketBytes(const KovaPacketPlan &plan);

/// Its references, whoever counts just now.
int32_t KovaReferences(KovaRtpPacket *pPacket);

/// The packet as a frame on an RTSP connection.
KovaBytes KovaFrameOf(uint8_t nChannel, const KovaBytes &packet);

/// A stream of a server that does not listen, with audio (96) and video (97),
/// and a sender of the video beside the stream's own: its one group is started
/// by the test.
class KovaDelivery {
public:
    KovaDelivery();
    ~KovaDelivery();
    KovaDelivery(const KovaDelivery &) = delete;
    KovaDelivery &operator=(const KovaDelivery &) = delete;

    KovaRtpSendGroup *Group();

    /// Puts a client into the group, as playing unless told otherwise.
    KovaRtpClient *Add(KovaRtpClient *pClient, int32_t nState = 1);

    /// Queues the packet in the sender's groups.
    void Queue(const KovaPacketPlan &plan);

    /// Waits until the group has served all it has; false after 5 s.
    bool Drain();

    /// Queues, starts the thread if it does not run, and drains.
    bool Send(const KovaPacketPlan &plan);

    /// Runs something under the group's clientMutex.
    void WithClients(const std::function<void()> &action);

    /// Whether the client is in the group.
    bool Has(const KovaRtpClient *pClient);

    /// Registers a session with this id.
    void AddSession(const std::string &id);
    bool HasSession(const std::string &id);

    KovaRtspServer *pServer;
    KovaRtspStreamer *pStream;
    KovaRtpSender *pSender;
    uint32_t nSsrc; ///< of the video
};
