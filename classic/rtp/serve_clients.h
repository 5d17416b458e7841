#pragma once

#include "classic/rtp/client_sending.h"

/// Sends the context's batch to every client of the group, one client after the
/// other. Takes and releases clientMutex itself, and holds it neither while it
/// waits, for a full socket or on behalf of clients that do not play, nor while it
/// talks to the stream.
void KovaServeClients(KovaSendingContext *pContext);
