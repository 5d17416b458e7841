// Parameter sets to the text of a session description, and back.
#include "foundation/base64.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

void Base64Encode(benchmark::State &state)
{
    const std::string bytes(static_cast<size_t>(state.range(0)), '\x67');
    const int32_t nSize = static_cast<int32_t>(bytes.size());
    std::vector<char> text(static_cast<size_t>(Base64encode_len(nSize)));
    for (auto _ : state)
        benchmark::DoNotOptimize(Base64encode(text.data(), bytes.data(), nSize));
    state.SetBytesProcessed(state.iterations() * nSize);
}

void Base64Decode(benchmark::State &state)
{
    const std::string text(static_cast<size_t>(state.range(0)) / 3 * 4, 'Z');
    std::vector<char> bytes(static_cast<size_t>(Base64decode_len(text.c_str())));
    for (auto _ : state)
        benchmark::DoNotOptimize(Base64decode(bytes.data(), text.c_str()));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK(Base64Encode)->Arg(24)->Arg(189);
BENCHMARK(Base64Decode)->Arg(24)->Arg(189);

} // namespace
