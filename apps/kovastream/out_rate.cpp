#include "out_rate.h"

#include <algorithm>

namespace kovastream {

namespace {

/// The server's kbit are 1024 bits.
constexpr double kServerKilobit = 1.024;

/// What the packets' headers add at most to the bytes that came in.
constexpr double kHeaders = 1.1;

} // namespace

double OutRate::Take(uint32_t told, int32_t clients, uint64_t bytes, SlidingRate::Time now)
{
    const double all = told * kServerKilobit;
    const double each = m_in.Take(bytes, now);
    if (!m_first.has_value())
        m_first = now;
    if (now <= *m_first)
        return all;
    return std::min(all, each * kHeaders * std::max(clients, 0));
}

} // namespace kovastream
