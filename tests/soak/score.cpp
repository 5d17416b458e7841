#include "tests/soak/score.h"

#include <cstdio>

namespace {

constexpr size_t kMostKept = 20;

} // namespace

void KovaSoakScore::Complain(const std::string &text)
{
    m_nFailures++;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_complaints.size() < kMostKept)
        m_complaints.push_back(text);
}

void KovaSoakScore::Report(const char *szMode)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const std::string &complaint : m_complaints)
        fprintf(stderr, "%s: WRONG: %s\n", szMode, complaint.c_str());
    fprintf(stderr, "%s: %u failures\n", szMode, Failures());
}
