#include "bench/load_player.h"

#include "bench/udp_ports.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr uint64_t kAskAgain = 100'000; // microseconds

const char *const kMethods[] = {"OPTIONS", "DESCRIBE",      "SETUP",
                                "PLAY",    "GET_PARAMETER", "TEARDOWN"};

} // namespace

KovaLoadPlayer::KovaLoadPlayer(KovaLoadWorld *pWorld, KovaLoadStream *pStream)
    : m_pWorld(pWorld), m_pStream(pStream),
      m_input([this](const KovaTestResponse &answer) { Answer(answer); },
              [this](unsigned nChannel, const uint8_t *pPacket, size_t nSize) {
                  Frame(nChannel, pPacket, nSize);
              })
{}

KovaLoadPlayer::~KovaLoadPlayer()
{
    End(m_state, m_trouble);
}

void KovaLoadPlayer::Join()
{
    m_nBegin = KovaLoadNow();
    m_nSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_nSocket < 0 || connect(m_nSocket, reinterpret_cast<sockaddr *>(&m_pStream->address),
                                 sizeof(sockaddr_in)) != 0)
        return End(kBroken, std::string("connect: ") + strerror(errno));
    if (Listen(KovaLoadEnd::kRtsp, 0, m_nSocket))
        Request(kOptions);
}

void KovaLoadPlayer::Leave()
{
    if (m_state != kPlaying)
        return End(kBroken, "was to leave while it did not play");
    m_state = kLeaving;
    if (!m_bAsked)
        Request(kTeardown);
}

void KovaLoadPlayer::OnReadable(const KovaLoadEnd &end)
{
    if (m_state == kLeft || m_state == kBroken)
        return;
    if (end.kind != KovaLoadEnd::kRtsp)
        Drain(end);
    else if (!m_input.Read(end.nSocket, &m_pWorld->nNow) && m_state != kLeft && m_state != kBroken)
        End(kBroken, "the connection ended");
}

void KovaLoadPlayer::Tick()
{
    const uint64_t nWaited = m_pWorld->nNow - m_nLastRequest;
    if (m_state == kJoining && m_bAskAgain && nWaited > kAskAgain)
        Request(m_step);
    if (m_state == kPlaying && !m_bAsked && nWaited > m_pWorld->nKeepAlive * 1000)
        Request(kKeepAlive);
}

bool KovaLoadPlayer::HasHeard() const
{
    return !m_tracks.empty() &&
           std::all_of(m_tracks.begin(), m_tracks.end(),
                       [](const Track &track) { return track.check.Count() != 0; });
}

void KovaLoadPlayer::Forget()
{
    for (Track &track : m_tracks)
        track.check.Forget(m_pWorld->nNow);
}

uint32_t KovaLoadPlayer::WorstGap() const
{
    uint32_t nWorst = 0;
    for (const Track &track : m_tracks)
        nWorst = std::max(nWorst, track.check.WorstGap(m_pWorld->nNow));
    return nWorst;
}

void KovaLoadPlayer::Request(Step step)
{
    const std::string track = step == kSetup ? "/" + m_tracks[m_nSetUp].control : std::string();
    const std::string text =
        KovaRequestText(kMethods[step], m_pStream->url + track, ++m_nCSeq, m_session,
                        step == kSetup ? SetupLines(m_nSetUp) : std::string());
    m_step = step;
    m_bAsked = true;
    m_bAskAgain = false;
    m_nLastRequest = m_pWorld->nNow;
    if (send(m_nSocket, text.data(), text.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(text.size()))
        End(kBroken, std::string("send: ") + strerror(errno));
}

void KovaLoadPlayer::Answer(const KovaTestResponse &answer)
{
    m_bAsked = false;
    if (answer.nStatus != 200)
        return End(kBroken, std::string(kMethods[m_step]) + " was answered with " +
                                std::to_string(answer.nStatus));
    if (m_step == kTeardown)
        return End(kLeft, "");
    if (m_state == kLeaving)
        return Request(kTeardown);
    switch (m_step) {
    case kOptions:
        return Request(kDescribe);
    case kDescribe:
        return AfterDescribe(answer);
    case kSetup:
        m_session = answer.Session();
        m_nSetUp++;
        if (m_nSetUp == m_tracks.size())
            Request(kPlay);
        else if (!m_pWorld->bUdp || OpenPorts(m_nSetUp))
            Request(kSetup);
        return;
    case kPlay:
        m_state = kPlaying;
        m_pWorld->nMostJoin = std::max(m_pWorld->nMostJoin, KovaLoadNow() - m_nBegin);
        return;
    default:
        return;
    }
}

/// A stream that is not ready is asked for again.
void KovaLoadPlayer::AfterDescribe(const KovaTestResponse &answer)
{
    const std::vector<KovaDescribedTrack> described = KovaDescribedTracks(answer.body);
    if (described.empty()) {
        m_bAskAgain = true;
        return;
    }
    m_pStream->clocks.resize(described.size());
    for (size_t nTrack = 0; nTrack < described.size(); nTrack++) {
        m_pStream->clocks[nTrack].nRate = described[nTrack].nRate;
        m_tracks.emplace_back();
        m_tracks.back().control = described[nTrack].control;
    }
    if (!m_pWorld->bUdp || OpenPorts(0))
        Request(kSetup);
}

std::string KovaLoadPlayer::SetupLines(size_t nTrack) const
{
    return KovaTransportLine(m_pWorld->bUdp ? KovaUdpTransport(m_tracks[nTrack].nRtpPort)
                                            : KovaTcpTransport(static_cast<int>(2 * nTrack)));
}

bool KovaLoadPlayer::OpenPorts(size_t nTrack)
{
    KovaUdpPorts ports;
    if (!KovaOpenUdpPorts(&ports)) {
        End(kBroken, "no UDP ports");
        return false;
    }
    m_tracks[nTrack].nRtpPort = ports.nPort;
    const bool bRtp = Listen(KovaLoadEnd::kRtp, nTrack, ports.nRtpSocket);
    const bool bRtcp = Listen(KovaLoadEnd::kRtcp, nTrack, ports.nRtcpSocket);
    return bRtp && bRtcp;
}

/// Takes over the socket.
bool KovaLoadPlayer::Listen(KovaLoadEnd::Kind kind, size_t nTrack, int nSocket)
{
    m_ends.push_back(std::make_unique<KovaLoadEnd>(KovaLoadEnd{this, kind, nTrack, nSocket}));
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.ptr = m_ends.back().get();
    if (epoll_ctl(m_pWorld->nEpoll, EPOLL_CTL_ADD, nSocket, &event) == 0)
        return true;
    End(kBroken, std::string("epoll: ") + strerror(errno));
    return false;
}

void KovaLoadPlayer::Frame(unsigned nChannel, const uint8_t *pPacket, size_t nSize)
{
    const size_t nTrack = nChannel / 2;
    if (nChannel % 2 == 0 && nTrack < m_tracks.size())
        Packet(nTrack, pPacket, nSize);
}

void KovaLoadPlayer::Packet(size_t nTrack, const uint8_t *pHeader, size_t nSize)
{
    if (nSize >= kLoadRtpHeader)
        m_tracks[nTrack].check.Take(pHeader, nSize, m_pWorld->nNow, m_pWorld->nLateLimit,
                                    &m_pStream->clocks[nTrack], &m_pWorld->counts);
}

void KovaLoadPlayer::Drain(const KovaLoadEnd &end)
{
    KovaDatagramHeads heads;
    do {
        KovaTakeDatagrams(end.nSocket, &heads);
        m_pWorld->nNow = KovaLoadNow();
        for (size_t nAt = 0; nAt < heads.nCount && end.kind == KovaLoadEnd::kRtp; nAt++)
            Packet(end.nTrack, heads.bytes[nAt], heads.nSizes[nAt]);
    } while (heads.nCount == kDatagrams);
}

void KovaLoadPlayer::End(State state, const std::string &trouble)
{
    m_state = state;
    m_trouble = trouble;
    for (const std::unique_ptr<KovaLoadEnd> &pEnd : m_ends) {
        if (pEnd->nSocket >= 0)
            close(pEnd->nSocket);
        pEnd->nSocket = -1;
    }
    m_nSocket = -1;
}
