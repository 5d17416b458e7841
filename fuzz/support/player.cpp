#include "fuzz/support/player.h"

#include "fuzz/support/network.h"
#include "fuzz/support/require.h"
#include "fuzz/support/response.h"
#include "fuzz/support/world.h"
#include "tests/support/rtsp_text.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

uint8_t ByteAt(std::string_view text, size_t nAt)
{
    return static_cast<uint8_t>(text[nAt]);
}

} // namespace

KovaFuzzPlayer::~KovaFuzzPlayer()
{
    Close();
}

int KovaFuzzPlayer::Connect()
{
    Close();
    int ends[2];
    KovaRequire(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "a socket pair can be made");
    m_nSocket = ends[0];
    m_nServerEnd = ends[1];
    m_bEnded = false;
    return m_nServerEnd;
}

void KovaFuzzPlayer::Close()
{
    if (m_nSocket >= 0)
        close(m_nSocket);
    m_nSocket = -1;
    m_bytes.clear();
    KovaWorldNudge();
}

void KovaFuzzPlayer::LimitServer(int64_t nBytes)
{
    if (m_nSocket >= 0)
        KovaNetworkLimit(m_nServerEnd, nBytes);
}

void KovaFuzzPlayer::Send(std::string_view bytes)
{
    if (m_nSocket >= 0)
        send(m_nSocket, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    KovaWorldNudge();
}

void KovaFuzzPlayer::Read()
{
    char buffer[16384];
    ssize_t nRead = -1;
    while (m_nSocket >= 0 && (nRead = recv(m_nSocket, buffer, sizeof(buffer), MSG_DONTWAIT)) > 0)
        m_bytes.append(buffer, static_cast<size_t>(nRead));
    m_bEnded = m_bEnded || nRead == 0 || (nRead < 0 && errno == ECONNRESET);
    // A response that met a full connection is cut: no player can read on behind it.
    if (IsCut())
        m_bytes.clear();
    while (TakeUnit()) {
    }
}

bool KovaFuzzPlayer::IsCut() const
{
    return KovaNetworkHasCut(m_nServerEnd);
}

void KovaFuzzPlayer::RequireWhole() const
{
    KovaRequire(m_bytes.empty(), "responses and frames are whole");
}

std::vector<std::string> KovaFuzzPlayer::TakeResponses()
{
    return std::move(m_responses);
}

bool KovaFuzzPlayer::TakeUnit()
{
    if (m_bytes.empty())
        return false;
    KovaRequire(m_bytes[0] == '$' || KovaBeginsResponse(m_bytes),
                "a connection carries responses and frames only");
    const KovaRtspPiece piece = KovaFirstPiece(m_bytes);
    if (piece.nSize == 0)
        return false;
    if (piece.nChannel >= 0) {
        KovaCheckMediaPacket(reinterpret_cast<const uint8_t *>(piece.bytes.data()),
                             piece.bytes.size());
        nFrames++;
    } else {
        KovaCheckResponse(piece.bytes);
        m_responses.emplace_back(piece.bytes);
        NoteSession(KovaReadResponse(piece.bytes).Session());
    }
    m_bytes.erase(0, piece.nSize);
    return true;
}

void KovaFuzzPlayer::NoteSession(const std::string &id)
{
    if (!id.empty() && std::find(sessions.begin(), sessions.end(), id) == sessions.end())
        sessions.push_back(id);
}

std::string KovaWithSession(std::string text, const std::string &session)
{
    for (size_t nAt = text.find('\1'); nAt != std::string::npos; nAt = text.find('\1', nAt))
        text.replace(nAt, 1, session.empty() ? "0" : session);
    return text;
}

bool KovaIsSilent(std::string_view chunk, bool bHasSession)
{
    if (chunk.size() < 4)
        return false;
    const uint8_t nFirst = ByteAt(chunk, 0);
    const uint8_t nSecond = ByteAt(chunk, 1);
    bool bReport = false;
    if (nFirst == '$') {
        bReport = chunk.size() >= 16 && ByteAt(chunk, 4) == 0x81 && ByteAt(chunk, 5) == 201;
    } else {
        if ((nFirst != 0x80 && nFirst != 0x81) || nSecond < 200 || nSecond > 202)
            return false;
        bReport = nFirst == 0x81 && nSecond == 201;
    }
    return !bReport || bHasSession;
}
