#pragma once

#include "classic/server/server.h"
#include "tests/support/ready_stream.h"
#include "tests/support/wait_until.h"

#include <string>
#include <vector>

/// A server that is not started, for tests of what is in it. Its end destroys
/// the server with everything that is registered.
class KovaStreamHost {
public:
    explicit KovaStreamHost(int32_t nMaxClient = 16);
    ~KovaStreamHost();
    KovaStreamHost(const KovaStreamHost &) = delete;
    KovaStreamHost &operator=(const KovaStreamHost &) = delete;

    KovaRtspServer *Server() const
    {
        return m_pServer;
    }

    /// Publishes a stream without payload types.
    KovaRtspStreamer *AddStream(const std::string &uri = "live");

    /// Publishes a stream with an audio (96) and a video payload type (97).
    KovaRtspStreamer *AddAudioVideo(const std::string &uri = "live");

    /// Makes and registers a session; the server owns it.
    KovaRtspSession *AddSession(const std::string &id, int32_t nTimeout = 60);

private:
    KovaRtspServer *m_pServer;
};

/// Adds an interleaved client that has no connection to a stream's sender.
/// The sender's group owns it.
KovaRtpClient *KovaAddTestClient(KovaRtspStreamer *pStreamer, uint32_t nPayloadId,
                                 const std::string &sessionId);

/// The ids of a sender's clients, in order.
std::vector<std::string> KovaClientIds(KovaRtspStreamer *pStreamer, uint32_t nPayloadId);

/// Ends both packer threads of a stream: what is pushed stays in the rings.
void KovaStopPackers(KovaRtspStreamer *pStreamer);

/// The messages that begin with a function's name.
std::vector<std::string> KovaMessagesOf(const std::vector<std::string> &messages,
                                        const std::string &name);
