#pragma once

#include "classic/rtsp/connection_handler.h"

#include <string>
#include <string_view>
#include <vector>

/// The player's end of a connection: reads what comes and requires that it is made of whole
/// responses and whole interleaved frames.
class KovaFuzzPlayer {
public:
    KovaFuzzPlayer() = default;
    ~KovaFuzzPlayer();
    KovaFuzzPlayer(const KovaFuzzPlayer &) = delete;
    KovaFuzzPlayer &operator=(const KovaFuzzPlayer &) = delete;

    /// Makes a connected pair and returns the server's end.
    int Connect();
    void Close();
    bool IsOpen() const
    {
        return m_nSocket >= 0;
    }

    /// Whether the server has ended the connection, or has cut a response on it.
    bool HasEnded() const
    {
        return m_bEnded;
    }
    bool IsCut() const;

    /// How much the server's end may still send, see KovaNetworkLimit().
    void LimitServer(int64_t nBytes);

    /// Sends bytes as far as they are taken at once.
    void Send(std::string_view bytes);
    /// Reads and checks all that is there.
    void Read();
    /// Requires that no response or frame is left half.
    void RequireWhole() const;

    /// Responses since the last call, and the session ids that came with any of them.
    std::vector<std::string> TakeResponses();
    std::vector<std::string> sessions;
    unsigned nFrames = 0;

private:
    bool TakeUnit();
    void NoteSession(const std::string &id);

    int m_nSocket = -1;
    int m_nServerEnd = -1;
    bool m_bEnded = false;
    std::string m_bytes;
    std::vector<std::string> m_responses;
};

/// Replaces each byte 1 by the session id: the fuzzer cannot know it.
std::string KovaWithSession(std::string text, const std::string &session);

/// Whether a chunk is RTCP that is taken without an answer.
bool KovaIsSilent(std::string_view chunk, bool bHasSession);
