#pragma once

#include <cstdint>

/// The order in which locks are taken, outermost first: nobody takes one while
/// holding one that stands further down, or the same one.
/// Builds with KOVA_CHECK_LOCK_ORDER hold every thread to it.
enum KovaLockRank : uint8_t {
    kRankHandlers,    ///< KovaRtspServer::mtxHandler: shutting down holds it while requests end
    kRankRequest,     ///< KovaRtspServerHandler::mtxRequest
    kRankSessions,    ///< KovaRtspServer::mtxSession
    kRankStreams,     ///< KovaRtspServer::mtxStreamer
    kRankAudioUse,    ///< KovaRtspStreamer::audioUseMutex: a packer thread while it packs
    kRankVideoUse,    ///< KovaRtspStreamer::videoUseMutex
    kRankSenders,     ///< KovaRtspStreamer::senderMutex
    kRankPackers,     ///< KovaRtspStreamer::packerMutex
    kRankGroups,      ///< KovaRtpSender::mutex
    kRankClients,     ///< KovaRtpSendGroup::clientMutex
    kRankPackets,     ///< KovaRtpSendGroup::packetMutex; not together with the clients'
    kRankChannels,    ///< the list of connections that are sending paths
    kRankChannel,     ///< one of them
    kRankLiveLoop,    ///< KovaLiveLoop::mutex: a round of a network thread
    kRankLiveStreams, ///< KovaLive::streamsMutex
    kRankLiveStream,  ///< KovaLiveStream::mutex
    kRankLiveInbox,   ///< KovaLiveLoop::inboxMutex
    kRankLeaf,        ///< everything else, for a few lines in which only lines are logged
    kRankLog,         ///< the time zone, which every log line looks up
};

#if defined(KOVA_CHECK_LOCK_ORDER)
/// Notes that this thread is about to take, or has given back, a lock. One out of
/// order is told on standard error and ends the process.
void KovaLockOrderTake(KovaLockRank rank);
void KovaLockOrderGive(KovaLockRank rank);

/// As Take, for a lock that was had without waiting: that cannot deadlock.
void KovaLockOrderTaken(KovaLockRank rank);
#else
inline void KovaLockOrderTake(KovaLockRank) {}
inline void KovaLockOrderGive(KovaLockRank) {}
inline void KovaLockOrderTaken(KovaLockRank) {}
#endif
