#pragma once

#include "classic/server/server.h"

#include <cstdint>
#include <functional>
#include <string>

/// Walks through a running server's records, each under the registry's mutex.
void KovaForEachSession(KovaRtspServer *pServer,
                        const std::function<void(KovaRtspSession *)> &action);
void KovaForEachHandler(KovaRtspServer *pServer,
                        const std::function<void(KovaRtspServerHandler *)> &action);

/// Moves the expiry of the session with this id; false when there is none.
bool KovaSetExpiry(KovaRtspServer *pServer, const std::string &id, int32_t tExpire);

/// Packets of a stream's track that wait to be sent.
unsigned KovaQueuedPackets(KovaRtspStreamer *pStreamer, uint32_t nPayloadId);
