#include "tests/robustness/player.h"

#include "tests/support/rtsp_text.h"
#include "tests/support/sockets.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace {

constexpr size_t kReportSize = 28;
constexpr int64_t kLate = 3000; ///< milliseconds; a second is usual

uint16_t SequenceOf(std::string_view packet)
{
    return static_cast<uint16_t>(static_cast<uint8_t>(packet[2]) << 8 |
                                 static_cast<uint8_t>(packet[3]));
}

} // namespace

KovaWatchingPlayer::KovaWatchingPlayer(const KovaPlayerOptions &options) : m_options(options)
{
    m_parser.onFrame = [this](int nChannel, std::string_view payload) {
        OnFrame(nChannel, payload);
    };
    m_parser.onResponse = [this](std::string_view text, bool bWhole) { OnResponse(text, bWhole); };
}

KovaWatchingPlayer::~KovaWatchingPlayer()
{
    Close();
}

bool KovaWatchingPlayer::Connect(uint16_t nPort)
{
    m_nSocket = KovaConnect(nPort, {m_options.nReceiveBuffer, 0});
    if (m_nSocket < 0)
        return false;
    m_thread = std::thread([this] { Run(); });
    return true;
}

uint16_t KovaWatchingPlayer::LocalPort() const
{
    return KovaPortOf(m_nSocket);
}

bool KovaWatchingPlayer::Setup(const std::string &stream, const KovaMediaScript &script,
                               const KovaScriptTrack &track, int nChannel)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_tracks[nChannel] = {&script, &track};
    }
    const KovaTestResponse response = KovaReadResponse(
        Ask(Format("SETUP", stream + "/trackID=" + std::to_string(track.nPayloadId),
                   KovaTransportLine(KovaTcpTransport(nChannel)))));
    if (m_session.empty())
        m_session = response.Session();
    return response.nStatus == 200 && m_session.size() == 11;
}

bool KovaWatchingPlayer::Play(const std::string &stream)
{
    return KovaReadResponse(Ask(Format("PLAY", stream))).nStatus == 200;
}

bool KovaWatchingPlayer::Send(std::string_view bytes)
{
    return send(m_nSocket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
           static_cast<ssize_t>(bytes.size());
}

std::string KovaWatchingPlayer::Ask(std::string_view request, int nMilliseconds)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_responses.clear();
    if (!Send(request))
        return {};
    m_answered.wait_for(lock, std::chrono::milliseconds(nMilliseconds),
                        [this] { return !m_responses.empty() || m_bEnded; });
    return m_responses.empty() ? std::string() : m_responses.front();
}

std::string KovaWatchingPlayer::Format(std::string_view method, std::string_view path,
                                       std::string_view lines)
{
    return KovaRequestText(method, "rtsp://127.0.0.1/" + std::string(path), ++m_nCSeq, m_session,
                           lines);
}

void KovaWatchingPlayer::Close()
{
    m_bStop = true;
    if (m_thread.joinable())
        m_thread.join();
    if (m_nSocket >= 0)
        close(m_nSocket);
    m_nSocket = -1;
}

void KovaWatchingPlayer::Run()
{
    std::vector<char> chunk(m_options.nChunk);
    while (!m_bStop && !m_bEnded) {
        struct pollfd entry = {m_nSocket, POLLIN, 0};
        if (!m_bRead) {
            usleep(5000);
            continue;
        }
        if (poll(&entry, 1, 20) != 1)
            continue;
        const ssize_t nGot = recv(m_nSocket, chunk.data(), chunk.size(), MSG_DONTWAIT);
        TakeBytes(std::string_view(chunk.data(), nGot > 0 ? static_cast<size_t>(nGot) : 0));
        if (m_options.nPauseMicroseconds > 0 && m_nLastAge < kLate)
            usleep(static_cast<useconds_t>(m_options.nPauseMicroseconds));
    }
}

/// No bytes: the connection has ended.
void KovaWatchingPlayer::TakeBytes(std::string_view bytes)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const bool bSense = m_parser.Take(bytes);
    if (!bSense)
        Complain(m_parser.Fault());
    if (bSense && !bytes.empty())
        return;
    m_bEnded = true;
    m_answered.notify_all();
}

void KovaWatchingPlayer::OnFrame(int nChannel, std::string_view payload)
{
    const auto rtp = m_tracks.find(nChannel);
    if (rtp != m_tracks.end())
        return Judge(&rtp->second, payload);
    if (m_tracks.count(nChannel - 1) == 0)
        return Complain("a frame on channel " + std::to_string(nChannel));
    if (payload.size() != kReportSize ||
        payload.substr(0, 4) != std::string_view("\x80\xc8\0\6", 4))
        return Complain("no sender report on channel " + std::to_string(nChannel));
    m_nReports++;
}

void KovaWatchingPlayer::Judge(Track *pTrack, std::string_view packet)
{
    const std::string name = "track " + std::to_string(pTrack->pTrack->nPayloadId);
    if (packet.size() < 12)
        return Complain(name + ": a frame of " + std::to_string(packet.size()) + " bytes");
    const uint16_t nSequence = SequenceOf(packet);
    if (pTrack->nNext >= 0 && nSequence != pTrack->nNext)
        Complain(name + ": packet " + std::to_string(nSequence) + " instead of " +
                 std::to_string(pTrack->nNext));
    if (nSequence >= pTrack->pTrack->packets.size())
        return Complain(name + ": packet " + std::to_string(nSequence) + " was never pushed");
    if (packet != pTrack->pTrack->packets[nSequence])
        Complain(name + ": packet " + std::to_string(nSequence) + " has other bytes");
    pTrack->nNext = nSequence + 1;
    pTrack->nReceived++;
    m_nLastAge = pTrack->pScript->Age(*pTrack->pTrack, nSequence);
    pTrack->nLargestAge = std::max<int64_t>(pTrack->nLargestAge, m_nLastAge);
}

void KovaWatchingPlayer::OnResponse(std::string_view text, bool bWhole)
{
    if (!bWhole) {
        m_cut.emplace_back(text);
        return;
    }
    m_nWhole++;
    m_responses.emplace_back(text);
    m_answered.notify_all();
}

void KovaWatchingPlayer::Complain(const std::string &fault)
{
    if (m_fault.empty())
        m_fault = fault;
}

KovaWatchingPlayer::Track *KovaWatchingPlayer::Find(const KovaScriptTrack &track)
{
    for (auto &entry : m_tracks) {
        if (entry.second.pTrack == &track)
            return &entry.second;
    }
    return nullptr;
}

size_t KovaWatchingPlayer::Received(const KovaScriptTrack &track)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const Track *pTrack = Find(track);
    return pTrack == nullptr ? 0 : pTrack->nReceived;
}

int KovaWatchingPlayer::NextSequence(const KovaScriptTrack &track)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const Track *pTrack = Find(track);
    return pTrack == nullptr ? -1 : pTrack->nNext;
}

int64_t KovaWatchingPlayer::TakeLargestAge(const KovaScriptTrack &track)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    Track *pTrack = Find(track);
    return pTrack == nullptr ? -1 : std::exchange(pTrack->nLargestAge, 0);
}

std::vector<std::string> KovaWatchingPlayer::CutResponses()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_cut;
}

size_t KovaWatchingPlayer::WholeResponses()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_nWhole;
}

size_t KovaWatchingPlayer::Reports()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_nReports;
}

std::string KovaWatchingPlayer::Fault()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_fault;
}
