#include "sliding_rate.h"

namespace kovastream {

namespace {

constexpr std::chrono::seconds kSpan{10};

} // namespace

double SlidingRate::Take(uint64_t bytes, Time now)
{
    m_looks.push_back({now, bytes});
    while (m_looks.size() > 2 && now - m_looks[1].time >= kSpan)
        m_looks.pop_front();
    const Look &first = m_looks.front();
    const double seconds = std::chrono::duration<double>(now - first.time).count();
    return seconds > 0 ? static_cast<double>(bytes - first.bytes) * 8 / 1000 / seconds : 0;
}

} // namespace kovastream
