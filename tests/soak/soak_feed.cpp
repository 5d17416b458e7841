#include "tests/soak/soak_feed.h"

#include "tests/soak/soak_media.h"

KovaSoakFeed::KovaSoakFeed(KovaRtspStreamer *pStream)
    : m_pStream(pStream), m_begin(KovaFeed::Clock::now())
{
    m_feed.Start([this] {
        if (!m_bPause)
            Push(m_nNumber);
        return m_begin + ++m_nNumber * std::chrono::milliseconds(kSoakInterval);
    });
}

void KovaSoakFeed::Push(uint32_t nNumber)
{
    const uint32_t nPts = KovaSoakPts(nNumber);
    KovaPush(m_pStream, KOVA_PAYLOAD_ID_AUDIO, KovaSoakAdts(nNumber), nPts);
    KovaPush(m_pStream, KOVA_PAYLOAD_ID_VIDEO, KovaSoakPicture(nNumber), nPts);
}
