#include "tests/soak/score.h"

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

std::vector<std::string> KovaSoakScore::Complaints()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_complaints;
}
