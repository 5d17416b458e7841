#pragma once

#include "live/engine/session.h"

/// Sends a sender report with a source description (RFC 3550, 6.4.1 and 6.5) for one track
/// and sets the time of the next.
void KovaRtcpSendReport(KovaLiveSession *pSession, KovaLiveSetup *pSetup);

/// Sends the reports of all tracks that are due to a player whose kept units wait: in front of
/// those, since players tie sound to picture by the first report of each track.
void KovaRtcpSendFirstReports(KovaLiveSession *pSession);

/// Says goodbye for each track that was played (RFC 3550, 6.6): report, description, BYE.
void KovaRtcpSendBye(KovaLiveSession *pSession);
