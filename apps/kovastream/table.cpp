#include "table.h"

#include <algorithm>

namespace kovastream {

namespace {

constexpr size_t kGap = 2;
constexpr size_t kKept = 2;

std::vector<size_t> WidthsOf(const Table &table)
{
    std::vector<size_t> widths;
    for (const auto &row : table) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); i++)
            widths[i] = std::max(widths[i], row[i].size());
    }
    return widths;
}

/// How many columns have room; the name's width is lowered where even the kept ones have not.
size_t Fit(std::vector<size_t> *widths, size_t width)
{
    size_t used = 0;
    for (size_t i = 0; i < widths->size(); i++) {
        used += (*widths)[i] + (i > 0 ? kGap : 0);
        if (used > width && i >= kKept)
            return i;
        if (used > width) {
            const size_t cut = std::min(used - width, (*widths)[0]);
            (*widths)[0] -= cut;
            used -= cut;
        }
    }
    return widths->size();
}

} // namespace

std::vector<std::string> Lines(const Table &table, size_t width)
{
    std::vector<size_t> widths = WidthsOf(table);
    const size_t columns = Fit(&widths, width);
    std::vector<std::string> lines;
    for (const auto &row : table) {
        std::string line;
        for (size_t i = 0; i < std::min(columns, row.size()); i++) {
            const std::string field = row[i].substr(0, widths[i]);
            const std::string padding(widths[i] - field.size(), ' ');
            if (i > 0 && !line.empty())
                line.append(kGap, ' ');
            line += i < kKept ? field + padding : padding + field;
        }
        line.resize(std::min(line.find_last_not_of(' ') + 1, width));
        lines.push_back(line);
    }
    return lines;
}

} // namespace kovastream
