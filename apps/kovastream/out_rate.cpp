#include "out_rate.h"

#include <algorithm>

namespace kovastream {

namespace {

// As long as the server's own mean.
constexpr std::chrono::seconds kSpan{10};

/// The server's kbit are 1024 bits.
constexpr double kServerKilobit = 1.024;

/// What the packets' headers add at most to the bytes that came in.
constexpr double kHeaders = 1.1;

} // namespace

double OutRate::Take(const Figures &figures, Time now)
{
    m_looks.push_back({now, figures.bytes});
    while (m_looks.size() > 2 && now - m_looks[1].time >= kSpan)
        m_looks.pop_front();
    const double told = figures.kilobitsOut * kServerKilobit;
    const Look &first = m_looks.front();
    const double seconds = std::chrono::duration<double>(now - first.time).count();
    if (seconds <= 0)
        return told;
    const double each = static_cast<double>(figures.bytes - first.bytes) * 8 / 1000 / seconds;
    return std::min(told, each * kHeaders * std::max(figures.clients, 0));
}

} // namespace kovastream
