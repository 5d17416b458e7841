#pragma once

#include "classic/rtsp/connection_handler.h"
#include "classic/rtsp/session.h"
#include "classic/streamer/streamer.h"
#include "foundation/export.h"
#include "foundation/keyed_list.h"
#include "foundation/list.h"
#include "foundation/mutex.h"
#include "foundation/thread.h"
#include "kova_rtsp_server.h"

#include <netinet/in.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>

/// The server: its listening socket, two service threads and three registries.
/// Frozen: callers from outside read the fields at these places; ours come last.
struct KovaRtspServer {
    std::atomic<int32_t> nListenSocket; ///< -1 when none is open
    char szAddr[KOVA_ADDRESS_SIZE];     ///< empty: any address; may lack a terminator
    uint16_t nPort;
    int32_t nMaxClient;
    pthread_t hListenThread;
    pthread_t hMonitorThread;
    KovaStateWord nListenState;
    KovaStateWord nMonitorState;
    KovaList *pHandlerList KOVA_GUARDED_BY(mtxHandler);   ///< of KovaRtspServerHandler
    KovaList *pSessionList KOVA_GUARDED_BY(mtxSession);   ///< of KovaRtspSession
    KovaList *pStreamerList KOVA_GUARDED_BY(mtxStreamer); ///< of KovaRtspStreamer
    KovaMutex mtxHandler;
    KovaMutex mtxSession;
    KovaMutex mtxStreamer;

    KovaMutex mtxListen;       ///< held while the listening socket is closed or woken
    KovaKeyedList handlerKeys; ///< of pHandlerList, by address; guarded by mtxHandler
    KovaKeyedList sessionKeys; ///< of pSessionList, by id; guarded by mtxSession
};

/// Opens the listening socket and leaves it open, also when a later step fails.
/// KOVA_OK, or KOVA_ERROR_SOCKET, _SETSOCKOPT, _BIND, _LISTEN.
int32_t KovaServerOpenListener(KovaRtspServer *pServer);

/// Closes the listening socket if its descriptor is above 0.
void KovaServerCloseListener(KovaRtspServer *pServer);

/// Ends the listener's wait for a connection.
void KovaServerWakeListener(KovaRtspServer *pServer);
