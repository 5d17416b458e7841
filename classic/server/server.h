#pragma once

#include "classic/rtsp/connection_handler.h"
#include "classic/rtsp/session.h"
#include "classic/streamer/streamer.h"
#include "foundation/export.h"
#include "foundation/keyed_list.h"
#include "foundation/list.h"
#include "foundation/thread.h"
#include "kova_rtsp_server.h"

#include <netinet/in.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>

/// The server: its listening socket, two service threads and three registries.
/// Lock order, outermost first: a handler's mtxRequest, mtxSession, mtxStreamer,
/// a stream's senderMutex, its packerMutex, a sender's mutex, a send group's
/// clientMutex or packetMutex. mtxHandler stands outside: whoever removes all
/// handlers holds it while their threads finish what they do, so nobody who
/// holds anything waits for it.
struct KovaRtspServer {
    std::atomic<int32_t> nListenSocket; ///< -1 when none is open
    char szAddr[KOVA_ADDRESS_SIZE];     ///< empty: any address; may lack a terminator
    uint16_t nPort;
    int32_t nMaxClient;
    pthread_t hListenThread;
    pthread_t hMonitorThread;
    KovaStateWord nListenState;
    KovaStateWord nMonitorState;
    KovaList *pHandlerList;  ///< of KovaRtspServerHandler; guarded by mtxHandler
    KovaList *pSessionList;  ///< of KovaRtspSession; guarded by mtxSession
    KovaList *pStreamerList; ///< of KovaRtspStreamer; guarded by mtxStreamer
    pthread_mutex_t mtxHandler;
    pthread_mutex_t mtxSession;
    pthread_mutex_t mtxStreamer;

    pthread_mutex_t mtxListen; ///< held while the listening socket is closed or woken
    KovaKeyedList handlerKeys; ///< of pHandlerList, by address; guarded by mtxHandler
    KovaKeyedList sessionKeys; ///< of pSessionList, by id; guarded by mtxSession
};

/// Closes the listening socket if its descriptor is above 0.
void KovaServerCloseListener(KovaRtspServer *pServer);

/// Ends the listener's wait for a connection.
void KovaServerWakeListener(KovaRtspServer *pServer);
