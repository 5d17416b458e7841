#pragma once

#include "classic/streamer/streamer.h"

/// One client met on a walk; sender's mutex and group's clientMutex are held.
struct KovaClientVisit {
    KovaRtspStreamer *pStreamer;
    KovaRtpSender *pSender;
    KovaRtpSendGroup *pGroup;
    KovaRtpClient *pClient;
};

/// What a walk does with a client; returns true to have it removed from its
/// group and destroyed.
using KovaClientVisitor = bool (*)(const KovaClientVisit &visit, void *pContext);

/// How a walk goes.
struct KovaClientWalk {
    /// The stream's mutex that guards the walk over the senders: senderMutex,
    /// or packerMutex for the monitor's figures.
    KovaMutex *pSenderListMutex;
    KovaLockRank rank; ///< that mutex's
    /// When set, each level is entered and left with a line on standard output
    /// that begins with this name.
    const char *szTrace;
    KovaClientVisitor pfnVisit;
    void *pContext;
};

/// Visits every client of a stream: senders in order of addition, their groups,
/// the groups' clients.
void KovaStreamerWalkClients(KovaRtspStreamer *pStreamer, const KovaClientWalk &walk);

/// Visits every client of a stream that belongs to a session.
void KovaStreamerWalkSession(KovaRtspStreamer *pStreamer, const char *szSessionId,
                             const char *szTrace, KovaClientVisitor pfnVisit, void *pContext);

/// Prints a walk's line, "<name>, <Enter or Leave> <level>"; null is silent.
void KovaWalkTrace(const char *szTrace, const char *szStep, const char *szLevel);
