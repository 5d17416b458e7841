#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
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
        m_copies.push_back(Clock::now() - begin);
        m_nAt += nSize;
    }

    /// Notes how long a step took, and takes it for the benchmark's time.
    void Step(benchmark::State *pState, Clock::time_point begin)
    {
        const Clock::duration step = Clock::now() - begin;
        m_steps.push_back(step);
        pState->SetIterationTime(std::chrono::duration<double>(step).count());
    }

    /// Prints the copy's time (s) and the ratio beside the step's. Both are of medians: what
    /// another program takes the processor for counts in neither.
    void Report(benchmark::State *pState)
    {
        if (m_copies.empty() || m_steps.empty())
            return;
        const double copy = Median(&m_copies);
        pState->counters["copy"] = copy;
        pState->counters["of_copy"] = Median(&m_steps) / copy;
    }

private:
    static double Median(std::vector<Clock::duration> *pTimes)
    {
        const auto middle = pTimes->begin() + static_cast<std::ptrdiff_t>(pTimes->size() / 2);
        std::nth_element(pTimes->begin(), middle, pTimes->end());
        return std::chrono::duration<double>(*middle).count();
    }

    std::vector<uint8_t> m_block;
    size_t m_nAt = 0;
    std::vector<Clock::duration> m_copies;
    std::vector<Clock::duration> m_steps;
};
