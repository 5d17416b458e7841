#pragma once

#include <chrono>
#include <string>

namespace kovastream {

/// How often something that fails is tried again, and how often that is said.
class Retry {
public:
    /// How long to wait before the next try: a second, then twice as long each time, at most ten
    /// seconds.
    std::chrono::seconds Pause();
    /// Whether this failure is not the one that was said last.
    bool IsNews(const std::string &failure);
    /// It works again: the next pause is a second.
    void Succeeded();
    /// It works well: the next failure is news, whatever it says.
    void Forget();

private:
    std::chrono::seconds m_pause{1};
    std::string m_said;
};

} // namespace kovastream
