#pragma once

#include "live/engine/session.h"

/// Sends a sender report with a source description (RFC 3550, 6.4.1 and 6.5) for one track
/// and sets the time of the next.
void KovaRtcpSendReport(KovaLiveSession *pSession, KovaLiveSetup *pSetup);

/// Says goodbye for a track, if it was played (RFC 3550, 6.6): report, description, BYE.
void KovaRtcpSendBye(KovaLiveSession *pSession, const KovaLiveSetup *pSetup);
