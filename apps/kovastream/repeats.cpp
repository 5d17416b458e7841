#include "repeats.h"

namespace kovastream {

std::string Repeats::Without(const std::string &lines)
{
    std::string rest;
    for (size_t begin = 0; begin < lines.size();) {
        const size_t end = lines.find('\n', begin);
        const std::string line = lines.substr(begin, end - begin);
        begin = end == std::string::npos ? lines.size() : end + 1;
        if (line == m_last) {
            m_count++;
            continue;
        }
        rest += Said() + line + "\n";
        m_last = line;
    }
    return rest;
}

std::string Repeats::Said()
{
    if (m_count == 0)
        return "";
    std::string said = "  (" + std::to_string(m_count) + " more of this line)\n";
    m_count = 0;
    return said;
}

} // namespace kovastream
