#include "tests/soak/soak_feed.h"

#include "tests/soak/soak_media.h"

#include <chrono>

namespace {

using Clock = std::chrono::steady_clock;

void PushUnit(KovaRtspStreamer *pStream, uint32_t nPayloadId, const std::string &unit,
              uint32_t nPts)
{
    KovaRtspServerPushData(pStream, nPayloadId, reinterpret_cast<const uint8_t *>(unit.data()),
                           static_cast<uint32_t>(unit.size()), nPts);
}

} // namespace

KovaSoakFeed::KovaSoakFeed(KovaRtspStreamer *pStream)
    : m_pStream(pStream), m_thread([this] { Run(); })
{}

KovaSoakFeed::~KovaSoakFeed()
{
    m_bEnd = true;
    m_thread.join();
}

void KovaSoakFeed::Push(uint32_t nNumber)
{
    const uint32_t nPts = KovaSoakPts(nNumber);
    PushUnit(m_pStream, KOVA_PAYLOAD_ID_AUDIO, KovaSoakAdts(nNumber), nPts);
    PushUnit(m_pStream, KOVA_PAYLOAD_ID_VIDEO, KovaSoakPicture(nNumber), nPts);
}

void KovaSoakFeed::Run()
{
    const Clock::time_point begin = Clock::now();
    const std::chrono::milliseconds interval(kSoakInterval);
    for (uint32_t nNumber = 0; !m_bEnd; nNumber++) {
        std::this_thread::sleep_until(begin + nNumber * interval);
        if (!m_bPause)
            Push(nNumber);
    }
}
