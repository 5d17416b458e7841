#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <vector>

/// What a step is measured against: a copy of the same bytes, made in turn with the step in the
/// same run. Figures of two runs, or of two machines, compare by the ratio.
class KovaCopyClock {
public:
    using Clock = std::chrono::steady_clock;

    /// Copies go round a block as large as the one that the step writes to.
    explicit KovaCopyClock(size_t nBlock) : m_block(nBlock, 1) {}

    /// Copies nSize bytes, at most the block's, and notes how long that took.
    void Copy(const void *pBytes, size_t nSize)
    {
        if (m_nAt + nSize > m_block.size())
            m_nAt = 0;
        const Clock::time_point begin = Clock::now();
        memcpy(m_block.data() + m_nAt, pBytes, nSize);
        benchmark::ClobberMemory();
        m_copies += Clock::now() - begin;
        m_nAt += nSize;
    }

    /// Notes how long a step took, and takes it for the benchmark's time.
    void Step(benchmark::State *pState, Clock::time_point begin)
    {
        const Clock::duration step = Clock::now() - begin;
        m_steps += step;
        pState->SetIterationTime(std::chrono::duration<double>(step).count());
    }

    /// Prints the ratio beside the time, and the copy's own time (s).
    void Report(benchmark::State *pState) const
    {
        const double copies = std::chrono::duration<double>(m_copies).count();
        pState->counters["copy"] = benchmark::Counter(copies, benchmark::Counter::kAvgIterations);
        pState->counters["of_copy"] = std::chrono::duration<double>(m_steps).count() / copies;
    }

private:
    std::vector<uint8_t> m_block;
    size_t m_nAt = 0;
    Clock::duration m_copies{0};
    Clock::duration m_steps{0};
};
