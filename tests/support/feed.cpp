#include "tests/support/feed.h"

int32_t KovaPush(KovaRtspStreamer *pStream, uint32_t nPayloadId, const std::string &unit,
                 uint32_t nPts)
{
    return KovaRtspServerPushData(pStream, nPayloadId,
                                  reinterpret_cast<const uint8_t *>(unit.data()),
                                  static_cast<uint32_t>(unit.size()), nPts);
}

KovaFeed::~KovaFeed()
{
    Stop();
}

void KovaFeed::Start(Step step)
{
    m_thread = std::thread([this, step = std::move(step)] { Run(step); });
}

void KovaFeed::Finish()
{
    if (m_thread.joinable())
        m_thread.join();
}

void KovaFeed::Stop()
{
    m_bStop = true;
    Finish();
}

void KovaFeed::Run(const Step &step)
{
    while (!m_bStop) {
        const std::optional<Clock::time_point> next = step();
        if (!next)
            return;
        std::this_thread::sleep_until(*next);
    }
}
