#include "tests/soak/fire_host.h"

#include "tests/soak/sessions.h"
#include "tests/support/test_server.h"

#include <chrono>

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kLoopback[KOVA_ADDRESS_SIZE] = "127.0.0.1";
constexpr std::chrono::milliseconds kInterval(10);
constexpr uint32_t kFirstPts = 1000;
constexpr uint32_t kJump = 1000; ///< from which on a step counts as a gap
constexpr unsigned kKeyInterval = 4;
constexpr size_t kKeyFrameSize = 9000;

} // namespace

const char *const kFireUris[kFireStreams] = {"front", "back"};

KovaFireHost::KovaFireHost(KovaSoakScore *pScore, uint16_t nPort, unsigned nSeed, bool bPaced)
    : m_pScore(pScore), m_nPort(nPort), m_bPaced(bPaced), m_random(nSeed)
{
    m_feed.Start([this] {
        PushAll();
        return Clock::now() + kInterval;
    });
}

unsigned KovaFireHost::Draw(unsigned nCount)
{
    return std::uniform_int_distribution<unsigned>(0, nCount - 1)(m_random);
}

bool KovaFireHost::AddStream(unsigned nStream)
{
    KovaRtspStreamer *pStream = KovaPublishAudioVideo(m_pServer, kFireUris[nStream]);
    if (pStream == nullptr) {
        m_pScore->Complain("a stream could not be added");
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_streams[nStream] = pStream;
    return true;
}

bool KovaFireHost::Create()
{
    const int32_t nResult = KovaRtspServerInit(&m_pServer, kLoopback, m_nPort, KOVA_MAX_CLIENTS);
    if (nResult != KOVA_OK) {
        m_pScore->Complain("the server did not start: " + std::to_string(nResult));
        return false;
    }
    for (unsigned nStream = 0; nStream < kFireStreams; nStream++)
        if (!AddStream(nStream))
            return false;
    return true;
}

void KovaFireHost::Destroy()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (KovaRtspStreamer *&pStream : m_streams)
            pStream = nullptr;
    }
    KovaRtspServerUninit(m_pServer);
    m_pServer = nullptr;
}

void KovaFireHost::ReplaceStream(unsigned nStream)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_streams[nStream] = nullptr;
    }
    if (KovaRtspServerRemoveUri(m_pServer, kFireUris[nStream]) != KOVA_OK)
        m_pScore->Complain("a stream could not be removed");
    AddStream(nStream);
}

void KovaFireHost::ReplacePayloadType(unsigned nStream)
{
    const KovaVideoDescription video = {1000};
    uint32_t nId = 0;
    KovaRtspStreamer *pStream = m_streams[nStream];
    if (KovaRtspServerRemovePayloadType(pStream, KOVA_PAYLOAD_ID_AUDIO + Draw(2)) != KOVA_OK ||
        KovaRtspServerAddPayloadType(pStream, KOVA_MEDIA_VIDEO, &nId, &video) != KOVA_OK)
        m_pScore->Complain("a payload type could not be replaced");
}

void KovaFireHost::StopAndStart()
{
    KovaRtspServerStop(m_pServer);
    std::this_thread::sleep_for(std::chrono::milliseconds(Draw(30)));
    const int32_t nResult = KovaRtspServerStart(m_pServer);
    if (nResult != KOVA_OK)
        m_pScore->Complain("the server did not start again: " + std::to_string(nResult));
}

void KovaFireHost::ExpireAll()
{
    KovaSoakSessions(m_pServer).ExpireAll();
}

void KovaFireHost::DoAnything()
{
    switch (Draw(6)) {
    case 0:
        return ReplacePayloadType(Draw(kFireStreams));
    case 1:
        return ExpireAll();
    default:
        return ReplaceStream(Draw(kFireStreams));
    }
}

void KovaFireHost::PushAll()
{
    const uint32_t nNumber = m_nUnits++;
    // Timestamps that run ahead of the time would fill the queues without end.
    const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_begin);
    const uint32_t nPts =
        kFirstPts + (m_bPaced ? static_cast<uint32_t>(time.count()) : nNumber * kJump);
    const std::string picture =
        nNumber % kKeyInterval == 0 ? KovaTestKeyFrame(kKeyFrameSize) : KovaTestInterFrame(700);
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (KovaRtspStreamer *pStream : m_streams) {
        if (pStream == nullptr)
            continue;
        KovaPush(pStream, KOVA_PAYLOAD_ID_AUDIO, KovaTestAacFrame(200), nPts);
        KovaPush(pStream, KOVA_PAYLOAD_ID_VIDEO, picture, nPts);
        KovaRtspStatus status = {1 + nNumber % 3, {}};
        if (KovaRtspServerGetStatus(pStream, &status) != KOVA_OK)
            m_pScore->Complain("no status");
    }
}
