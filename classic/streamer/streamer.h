#pragma once

#include "classic/rtp/rtp_packer.h"
#include "classic/rtp/sender.h"
#include "classic/sdp/media_info.h"
#include "classic/sdp/sdp_generator.h"
#include "foundation/event.h"
#include "foundation/export.h"
#include "foundation/list.h"
#include "foundation/mutex.h"
#include "foundation/ring_buffer.h"
#include "foundation/thread.h"
#include "kova_rtsp_server.h"

#include <atomic>
#include <cstdint>

struct KovaRtspServer;

/// One published stream: everything between the host's pushes and the network.
/// Frozen: callers from outside read the fields at these places; ours come last.
struct KovaRtspStreamer {
    KovaRtspServer *pServer;
    char szUri[KOVA_MAX_URI_LENGTH]; ///< no terminator when the URI fills it
    uint32_t nLastPayloadId;
    KovaRtspSdpGenerator *pSdpGenerator;                      ///< may be null: every use copes
    KovaList *pMediaInfoList KOVA_GUARDED_BY(mediaInfoMutex); ///< of KovaRtspMediaInfo
    KovaList *pMediaInfoListTail KOVA_GUARDED_BY(mediaInfoMutex);
    KovaList *pPackerList KOVA_GUARDED_BY(packerMutex); ///< of KovaRtpPacker
    KovaList *pPackerListTail KOVA_GUARDED_BY(packerMutex);
    KovaList *pSenderList KOVA_GUARDED_BY(senderMutex); ///< of KovaRtpSender
    KovaList *pSenderListTail KOVA_GUARDED_BY(senderMutex);
    KovaMutex mediaInfoMutex;
    /// Guards the packers. The monitor also walks the senders under it, so a
    /// change of the sender list takes senderMutex and then this one.
    KovaMutex packerMutex;
    KovaMutex senderMutex;
    uint32_t nFirstRtpTimestamp
        KOVA_GUARDED_BY(firstSendMutex); ///< presentation timestamp of the first packet sent, ms
    uint64_t nFirstSendTime KOVA_GUARDED_BY(firstSendMutex); ///< when that was, ms
    KovaMutex firstSendMutex;
    uint32_t tCreated; ///< wall-clock seconds
    std::atomic<uint32_t> nLastAudioTimestamp;
    std::atomic<uint32_t> nLastVideoTimestamp;
    uint64_t nLastAudioPushTime; ///< each its pushing thread's own
    uint64_t nLastVideoPushTime;
    uint64_t nMaxAudioPushInterval KOVA_GUARDED_BY(figuresMutex);
    uint64_t nMaxVideoPushInterval KOVA_GUARDED_BY(figuresMutex);
    KovaRingbuffer videoRing;
    KovaRingbuffer audioRing;
    KovaMutex ringMutex; ///< taken by nobody: the rings need no lock
    KovaStateWord nAudioPackerState;
    KovaStateWord nVideoPackerState;
    uint64_t nAveThroughput KOVA_GUARDED_BY(figuresMutex); ///< kbit/s over all clients
    std::atomic<int32_t> nClientCount;   ///< changed in classic/streamer/players.cpp only
    std::atomic<uint32_t> nServerStatus; ///< KOVA_STREAM_*

    /// 64-bit figures that two threads touch: no 32-bit board has atomics for them.
    KovaMutex figuresMutex;
    KovaEvent audioWork; ///< data or a stop request for the packer thread
    KovaEvent videoWork;
    /// Held by each packer thread while it uses a packer and a sender; whoever
    /// unlinks one passes through both before freeing it.
    KovaMutex audioUseMutex;
    KovaMutex videoUseMutex;
    /// Requests that are using the stream right now; its destruction waits.
    std::atomic<uint32_t> nPins;
};

/// Makes a stream and starts its two packer threads. Null: null argument, a URI
/// of more than KOVA_MAX_URI_LENGTH characters or one that the server has already, no
/// memory, no thread.
KOVA_API KovaRtspStreamer *KovaRtspStreamerCreate(KovaRtspServer *pServer, const char *szUri);

/// Stops the stream's threads and frees everything. The stream must be out of
/// the server's registry; requests that still use it are waited for. 0; 2 for null.
KOVA_API int32_t KovaRtspStreamerDestroy(KovaRtspStreamer *pStreamer);

/// Counts a user in or out. A user is counted in under the registry's mutex,
/// while the stream is in it.
void KovaStreamerPin(KovaRtspStreamer *pStreamer);
void KovaStreamerUnpin(KovaRtspStreamer *pStreamer);

/// Declares a payload type: assigns the payload id, makes media info, session
/// description entry, packer and sender, and starts the sender. 0; 1 for an
/// unknown media type or without memory (the id is consumed, and what was
/// registered stays, except a media info without its entry in the session
/// description); 2 for a null argument.
KOVA_API int32_t KovaRtspStreamerAddPayloadType(KovaRtspStreamer *pStreamer, uint32_t nMediaType,
                                                uint32_t *pPayloadId, const void *pDescription);

/// Removes everything that belongs to a payload id. 0, also for an unknown id;
/// 2 for null.
KOVA_API int32_t KovaRtspStreamerRemovePayloadType(KovaRtspStreamer *pStreamer,
                                                   uint32_t nPayloadId);

/// The next payload id: 96, then one more each time. Null is ignored.
KOVA_API void GetNewPayloadId(KovaRtspStreamer *pStreamer, uint32_t *pPayloadId);

/// A random SSRC. Null is ignored.
KOVA_API void GetNewSSRC(uint32_t *pSsrc);

/// Passes both arguments to KovaRtspServerUpdateSession: the first one is in
/// effect the server. 2 when either is null.
KOVA_API int32_t KovaRtspStreamerUpdateSession(KovaRtspServer *pServer, const char *szSessionId);

/// Figures of the stream. 0; 2 for a null argument.
KOVA_API int32_t KovaRtspStreamerGetAveThroughput(KovaRtspStreamer *pStreamer,
                                                  uint64_t *pThroughput);
KOVA_API int32_t KovaRtspStreamerGetClientCount(KovaRtspStreamer *pStreamer, int32_t *pCount);
KOVA_API int32_t KovaRtspStreamerGetServerStatus(KovaRtspStreamer *pStreamer, uint32_t *pStatus);

/// Stores the mean throughput. Monitor only.
void KovaStreamerSetThroughput(KovaRtspStreamer *pStreamer, uint64_t nThroughput);

/// 1 when the stream's session description is complete, else 0.
KOVA_API int32_t KovaRtspStreamerSdpIsReady(KovaRtspStreamer *pStreamer);
