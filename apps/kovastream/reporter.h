#pragma once

#include "console.h"
#include "figures.h"
#include "options.h"
#include "stream.h"

#include <chrono>
#include <memory>
#include <vector>

namespace kovastream {

/// Shows how the streams do, and says when no further player is let in. Tick() is called once a
/// second.
class Reporter {
public:
    Reporter(const Options &options, Console *console,
             const std::vector<std::unique_ptr<Stream>> &streams);

    void Tick();

private:
    using Clock = std::chrono::steady_clock;

    std::vector<Figures> Look() const;
    void TellRefusals(const std::vector<Figures> &figures);

    const StatusForm m_form;
    const int32_t m_maxClients;
    Console *const m_console;
    const std::vector<std::unique_ptr<Stream>> &m_streams;
    const int m_period; ///< ticks between reports
    int m_ticks = 0;
    Clock::time_point m_last;
    std::vector<Figures> m_before;
    bool m_full = false; ///< as many players as are let in
};

} // namespace kovastream
