#include "tests/support/feed.h"

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
