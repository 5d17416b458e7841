#pragma once

#include "classic/rtp/send_group.h"

/// Asks the system, once for all clients of a group, whose RTCP socket holds
/// something, and notes it in the clients (bRtcpWaits). Where it is not known, it
/// is taken for something.
void KovaNoteRtcpArrivals(KovaRtpSendGroup *pGroup) KOVA_REQUIRES(pGroup->clientMutex);
