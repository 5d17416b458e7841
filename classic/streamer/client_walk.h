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
    pthread_mutex_t *pSenderListMutex;
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

/// A visitor that removes each client it meets. pContext is a bool, false at the
/// start of the removal: the first client, unless its session was counted out
/// already, lowers its stream's client count.
bool KovaVisitRemoveClient(const KovaClientVisit &visit, void *pContext);

/// Lowers the stream's client count for a client's session, unless that did not
/// play or was counted out before.
void KovaVisitCountOut(const KovaClientVisit &visit);

/// Prints a walk's line, "<name>, <Enter or Leave> <level>"; null is silent.
void KovaWalkTrace(const char *szTrace, const char *szStep, const char *szLevel);
