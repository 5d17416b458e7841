#include "fuzz/support/player.h"

#include "fuzz/support/network.h"
#include "fuzz/support/require.h"
#include "fuzz/support/response.h"
#include "fuzz/support/world.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

constexpr char kLengthName[] = "Content-Length: ";
constexpr char kSessionName[] = "\r\nSession: ";

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
    if (m_bytes[0] == '$') {
        if (m_bytes.size() < 4)
            return false;
        const size_t nSize = size_t{ByteAt(m_bytes, 2)} << 8 | ByteAt(m_bytes, 3);
        if (m_bytes.size() < 4 + nSize)
            return false;
        KovaCheckMediaPacket(reinterpret_cast<const uint8_t *>(m_bytes.data()) + 4, nSize);
        m_bytes.erase(0, 4 + nSize);
        nFrames++;
        return true;
    }
    const std::string_view begin = "RTSP/1.0 ";
    const size_t nKnown = std::min(begin.size(), m_bytes.size());
    KovaRequire(m_bytes.compare(0, nKnown, begin.substr(0, nKnown)) == 0,
                "a connection carries responses and frames only");
    size_t nEnd = m_bytes.find("\r\n\r\n");
    if (nEnd == std::string::npos)
        return false;
    nEnd += 4;
    const size_t nLength = m_bytes.find(kLengthName);
    if (nLength < nEnd)
        nEnd += std::stoul(m_bytes.substr(nLength + sizeof(kLengthName) - 1));
    if (m_bytes.size() < nEnd)
        return false;
    const std::string response = m_bytes.substr(0, nEnd);
    m_bytes.erase(0, nEnd);
    KovaCheckResponse(response);
    NoteSession(response);
    m_responses.push_back(response);
    return true;
}

void KovaFuzzPlayer::NoteSession(const std::string &response)
{
    const size_t nName = response.find(kSessionName);
    if (nName == std::string::npos)
        return;
    const std::string id = response.substr(nName + sizeof(kSessionName) - 1, 11);
    if (id[0] != ';' && std::find(sessions.begin(), sessions.end(), id) == sessions.end())
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
