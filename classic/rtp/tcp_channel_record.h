#pragma once

#include "classic/rtp/stall_watch.h"
#include "classic/rtp/tcp_channel.h"
#include "foundation/keyed_list.h"
#include "foundation/mutex.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

// What a channel is made of, for tcp_channel.cpp and tcp_channel_out.cpp alone.

struct KovaTcpChannel {
    uint32_t nUsers;           // guarded by the registry's mutex, like pSocket's value
    KovaMutex mutex;           // guards everything below and every use of the descriptor
    std::atomic<int> *pSocket; // the socket field; nGone once its owner has left
    std::atomic<int> nGone{-1};
    KovaList *pReferences; // of std::atomic<int *>, all pointing at pSocket
    KovaKeyedList referenceKeys;
    uint8_t *pTail; // rest of a frame that was begun; null when none is
    size_t nTailSize;
    size_t nTailSent;
    uint32_t nFrame; // number of the frame that pTail ends
    bool bReaderWaits;
    bool bReaderWoken;
    int nLeftToClose; // descriptor that the waiting reader closes; 0 when none
    KovaStallWatch stall;
};

/// The descriptor; -1 once it is closed. Under the channel's mutex, which orders it.
inline int KovaTcpChannelSocket(const KovaTcpChannel *pChannel)
{
    return pChannel->pSocket->load(std::memory_order_relaxed);
}

/// What is left of a frame that was begun will not be sent. Under the channel's mutex. Leaves errno
/// as it is: it tells why.
void KovaTcpChannelDropTail(KovaTcpChannel *pChannel);
