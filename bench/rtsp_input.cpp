#include "bench/rtsp_input.h"

#include "bench/track_check.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

namespace {

constexpr size_t kChunk = 256 * 1024;
constexpr size_t kFrameHeader = 4;
const char *const kControl = "\na=control:";

/// The value of a header line, or nothing.
std::string_view Header(std::string_view head, std::string_view name)
{
    const size_t nBegin = head.find(name);
    if (nBegin == std::string_view::npos)
        return {};
    head.remove_prefix(nBegin + name.size());
    return head.substr(0, head.find("\r\n"));
}

/// The control attribute of the media section around a place in a description.
std::string ControlAt(const std::string &description, size_t nPlace)
{
    const size_t nBegin = description.rfind("\nm=", nPlace);
    const size_t nEnd = description.find("\nm=", nPlace);
    const size_t nControl = description.find(kControl, nBegin == std::string::npos ? 0 : nBegin);
    if (nControl >= nEnd)
        return {};
    const size_t nText = nControl + strlen(kControl);
    return description.substr(nText, description.find_first_of("\r\n", nText) - nText);
}

} // namespace

KovaRtspInput::KovaRtspInput(OnAnswer onAnswer, OnFrame onFrame)
    : m_onAnswer(std::move(onAnswer)), m_onFrame(std::move(onFrame))
{}

bool KovaRtspInput::Read(int nSocket, uint64_t *pNow)
{
    static std::vector<uint8_t> s_chunk(2 * kChunk);
    for (;;) {
        // What was begun goes in front of what comes.
        std::copy(m_rest.begin(), m_rest.end(), s_chunk.begin());
        const ssize_t nGot = recv(nSocket, s_chunk.data() + m_rest.size(), kChunk, MSG_DONTWAIT);
        *pNow = KovaLoadNow();
        if (nGot == 0)
            return false;
        if (nGot < 0)
            return errno == EAGAIN || errno == EINTR;
        const size_t nSize = m_rest.size() + static_cast<size_t>(nGot);
        m_rest.clear();
        TakeAll(s_chunk.data(), nSize);
        if (m_rest.size() >= kChunk)
            return false;
        if (static_cast<size_t>(nGot) < kChunk)
            return true;
    }
}

void KovaRtspInput::TakeAll(const uint8_t *pBytes, size_t nSize)
{
    while (nSize != 0) {
        const size_t nTaken = *pBytes == '$' ? TakeFrame(pBytes, nSize) : TakeAnswer(pBytes, nSize);
        if (nTaken == 0)
            break;
        pBytes += nTaken;
        nSize -= nTaken;
    }
    m_rest.assign(pBytes, pBytes + nSize);
}

size_t KovaRtspInput::TakeFrame(const uint8_t *pBytes, size_t nSize)
{
    if (nSize < kFrameHeader)
        return 0;
    const size_t nPacket = static_cast<size_t>(pBytes[2] << 8 | pBytes[3]);
    if (nSize < kFrameHeader + nPacket)
        return 0;
    m_onFrame(pBytes[1], pBytes + kFrameHeader, nPacket);
    return kFrameHeader + nPacket;
}

size_t KovaRtspInput::TakeAnswer(const uint8_t *pBytes, size_t nSize)
{
    const std::string_view text(reinterpret_cast<const char *>(pBytes), nSize);
    const size_t nEnd = text.find("\r\n\r\n");
    if (nEnd == std::string_view::npos)
        return 0;
    const std::string_view head = text.substr(0, nEnd + 2);
    const size_t nBody = strtoul(std::string(Header(head, "Content-Length:")).c_str(), nullptr, 10);
    if (nSize < nEnd + 4 + nBody)
        return 0;
    KovaRtspAnswer answer;
    answer.nStatus = atoi(std::string(head.substr(std::min<size_t>(9, head.size()))).c_str());
    const std::string_view session = Header(head, "Session: ");
    answer.session = session.substr(0, session.find(';'));
    answer.body = text.substr(nEnd + 4, nBody);
    m_onAnswer(answer);
    return nEnd + 4 + nBody;
}

std::vector<KovaDescribedTrack> KovaDescribedTracks(const std::string &description)
{
    std::vector<KovaDescribedTrack> tracks;
    size_t nAt = 0;
    while ((nAt = description.find("\na=rtpmap:", nAt)) != std::string::npos) {
        const char *szMap = description.c_str() + nAt + strlen("\na=rtpmap:");
        const char *szRate = strchr(szMap, '/');
        KovaDescribedTrack track;
        if (szRate != nullptr)
            track.nRate = static_cast<uint32_t>(strtoul(szRate + 1, nullptr, 10));
        track.control = ControlAt(description, nAt);
        if (track.nRate != 0)
            tracks.push_back(track);
        nAt++;
    }
    return tracks;
}
