#include "reporter.h"

#include <string>

namespace kovastream {

namespace {

constexpr int kPlainPeriod = 10;

} // namespace

Reporter::Reporter(const Options &options, Console *console,
                   const std::vector<std::unique_ptr<Stream>> &streams)
    : m_form(options.status), m_maxClients(options.maxClients), m_console(console),
      m_streams(streams),
      m_period(m_form != StatusForm::Json && !console->IsLive() ? kPlainPeriod : 1),
      m_last(Clock::now()), m_before(streams.size())
{}

void Reporter::Tick()
{
    std::vector<Figures> all = Look();
    TellRefusals(all);
    if (m_form == StatusForm::None || ++m_ticks % m_period != 0)
        return;
    const Clock::time_point now = Clock::now();
    const double seconds = std::chrono::duration<double>(now - m_last).count();
    m_last = now;
    Table table;
    for (size_t i = 0; i < all.size(); i++) {
        const Rates rates = RatesBetween(m_before[i], all[i], seconds);
        if (m_form == StatusForm::Json)
            table.push_back({StatusJson(all[i], rates)});
        else
            table.push_back(StatusFields(all[i], rates));
        if (m_form != StatusForm::Players)
            continue;
        for (const Player &player : all[i].served.players)
            table.push_back(PlayerFields(player));
    }
    m_before = std::move(all);
    m_console->ShowStatus(table);
}

std::vector<Figures> Reporter::Look() const
{
    std::vector<Figures> all;
    for (const auto &stream : m_streams)
        all.push_back(stream->Look());
    return all;
}

void Reporter::TellRefusals(const std::vector<Figures> &figures)
{
    int32_t clients = 0;
    for (const Figures &one : figures)
        clients += one.served.clients;
    const bool full = clients >= m_maxClients;
    if (full && !m_full)
        m_console->Print("the maximum of " + std::to_string(m_maxClients) +
                         (m_maxClients == 1 ? " player" : " players") +
                         " is reached: further ones are refused (--max-clients)");
    m_full = full;
}

} // namespace kovastream
