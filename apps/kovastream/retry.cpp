#include "retry.h"

#include <algorithm>

namespace kovastream {

namespace {

constexpr std::chrono::seconds kShortest{1};
constexpr std::chrono::seconds kLongest{10};

} // namespace

std::chrono::seconds Retry::Pause()
{
    const std::chrono::seconds pause = m_pause;
    m_pause = std::min(2 * pause, kLongest);
    return pause;
}

bool Retry::IsNews(const std::string &failure)
{
    const bool news = failure != m_said;
    m_said = failure;
    return news;
}

void Retry::Succeeded()
{
    m_pause = kShortest;
}

void Retry::Forget()
{
    m_said.clear();
}

} // namespace kovastream
