#pragma once

#include "console.h"
#include "figures.h"
#include "options.h"
#include "out_rate.h"
#include "stream.h"

#include <chrono>
#include <memory>
#include <vector>

namespace kovastream {

/// Shows how the streams do. Tick() is called once a second.
class Reporter {
public:
    Reporter(const Options &options, Console *console,
             const std::vector<std::unique_ptr<Stream>> &streams);

    void Tick();

private:
    using Clock = std::chrono::steady_clock;

    const StatusForm m_form;
    Console *const m_console;
    const std::vector<std::unique_ptr<Stream>> &m_streams;
    const int m_period; ///< ticks between reports
    int m_ticks = 0;
    Clock::time_point m_last;
    std::vector<Figures> m_before;
    std::vector<OutRate> m_out;
};

} // namespace kovastream
