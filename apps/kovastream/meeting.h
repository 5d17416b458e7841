#pragma once

#include "stop.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace kovastream {

/// Where the sources of a stream wait for each other.
class Meeting {
public:
    Meeting(int sources, const Stop &stop) : m_sources(sources), m_stop(stop) {}

    /// Waits until all have come; the last one does `work` before any goes on. Returns false when
    /// the end was requested.
    template <typename Work> bool Meet(Work work)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        const int round = m_round;
        if (++m_here == m_sources) {
            work();
            m_here = 0;
            m_round++;
            m_all.notify_all();
        }
        // The end comes by a descriptor, so it is looked for.
        while (m_round == round && !m_stop.Requested())
            m_all.wait_for(lock, std::chrono::milliseconds(50));
        return !m_stop.Requested();
    }

private:
    const int m_sources;
    const Stop &m_stop;
    std::mutex m_mutex;
    std::condition_variable m_all;
    int m_here = 0;
    int m_round = 0;
};

} // namespace kovastream
