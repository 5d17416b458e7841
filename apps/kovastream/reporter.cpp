#include "reporter.h"

#include <string>

namespace kovastream {

namespace {

constexpr int kPlainPeriod = 10;

} // namespace

Reporter::Reporter(const Options &options, Console *console,
                   const std::vector<std::unique_ptr<Stream>> &streams)
    : m_form(options.status), m_console(console), m_streams(streams),
      m_period(m_form == StatusForm::Line && !console->IsLive() ? kPlainPeriod : 1),
      m_last(Clock::now()), m_before(streams.size()), m_out(streams.size())
{}

void Reporter::Tick()
{
    if (m_form == StatusForm::None || ++m_ticks % m_period != 0)
        return;
    const Clock::time_point now = Clock::now();
    const double seconds = std::chrono::duration<double>(now - m_last).count();
    m_last = now;
    std::vector<std::string> lines;
    for (size_t i = 0; i < m_streams.size(); i++) {
        Figures figures = m_streams[i]->Look();
        Rates rates = RatesBetween(m_before[i], figures, seconds);
        rates.kilobitsOut = m_out[i].Take(figures, now);
        lines.push_back(m_form == StatusForm::Json ? StatusJson(figures, rates)
                                                   : StatusLine(figures, rates));
        m_before[i] = std::move(figures);
    }
    m_console->ShowStatus(lines);
}

} // namespace kovastream
