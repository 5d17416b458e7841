#include "bench/rtsp_input.h"

#include "bench/track_check.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

constexpr size_t kChunk = 256 * 1024;
const char *const kControl = "\na=control:";

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
    static std::vector<char> s_chunk(2 * kChunk);
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
        TakeAll(std::string_view(s_chunk.data(), nSize));
        if (m_rest.size() >= kChunk)
            return false;
        if (static_cast<size_t>(nGot) < kChunk)
            return true;
    }
}

void KovaRtspInput::TakeAll(std::string_view bytes)
{
    for (;;) {
        const KovaRtspPiece piece = KovaFirstPiece(bytes);
        if (piece.nSize == 0)
            break;
        if (piece.nChannel >= 0)
            m_onFrame(static_cast<unsigned>(piece.nChannel),
                      reinterpret_cast<const uint8_t *>(piece.bytes.data()), piece.bytes.size());
        else
            m_onAnswer(KovaReadResponse(piece.bytes));
        bytes.remove_prefix(piece.nSize);
    }
    m_rest.assign(bytes);
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
