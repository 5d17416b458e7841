#include "parameter_sets.h"

#include "nal_units.h"

#include <algorithm>

namespace kovastream {

namespace {

// In front of an SPS's id: the header, profile, constraints and level (ITU-T H.264, 7.3.2.1.1).
constexpr size_t kBytesBeforeSpsId = 4;
constexpr size_t kBytesBeforePpsId = 1;

/// An Exp-Golomb number (ITU-T H.264, 9.1) at the beginning of some bytes; 0 behind their end.
uint32_t FirstNumber(const uint8_t *bytes, size_t size)
{
    const auto bit = [bytes, size](size_t at) {
        return at / 8 < size ? bytes[at / 8] >> (7 - at % 8) & 1U : 0U;
    };
    size_t zeros = 0;
    while (zeros < 31 && bit(zeros) == 0)
        zeros++;
    uint32_t value = 1;
    for (size_t i = 0; i < zeros; i++)
        value = value << 1 | bit(zeros + 1 + i);
    return zeros < 31 ? value - 1 : 0;
}

} // namespace

template <typename Use> void ParameterSets::ForEach(const uint8_t *bytes, size_t size, Use use)
{
    ForEachNalUnit(bytes, size, [&use](const uint8_t *unit, size_t length) {
        const int type = NalType(unit);
        if (type != kNalSps && type != kNalPps)
            return;
        while (length > 1 && unit[length - 1] == 0)
            length--;
        const size_t skipped =
            std::min(length, type == kNalSps ? kBytesBeforeSpsId : kBytesBeforePpsId);
        use(Set{type, FirstNumber(unit + skipped, length - skipped), {unit, unit + length}});
    });
}

const ParameterSets::Set *ParameterSets::Find(const Set &like) const
{
    const auto found = std::find_if(m_sets.begin(), m_sets.end(), [&like](const Set &set) {
        return set.type == like.type && set.id == like.id;
    });
    return found == m_sets.end() ? nullptr : &*found;
}

size_t ParameterSets::Take(const uint8_t *bytes, size_t size)
{
    ParameterSets taken;
    ForEach(bytes, size, [this, &taken](Set set) {
        if (taken.Find(set) == nullptr)
            taken.m_sets.push_back(set);
        const Set *known = Find(set);
        if (known == nullptr)
            m_sets.push_back(std::move(set));
        else
            m_sets[static_cast<size_t>(known - m_sets.data())] = std::move(set);
    });
    return taken.Count();
}

bool ParameterSets::ContradictedBy(const uint8_t *bytes, size_t size) const
{
    bool contradicted = false;
    ForEach(bytes, size, [this, &contradicted](const Set &set) {
        const Set *known = Find(set);
        contradicted |= known != nullptr ? known->bytes != set.bytes : set.type == kNalSps;
    });
    return contradicted;
}

std::vector<uint8_t> ParameterSets::Text() const
{
    std::vector<uint8_t> text;
    for (const Set &set : m_sets) {
        text.insert(text.end(), {0, 0, 0, 1});
        text.insert(text.end(), set.bytes.begin(), set.bytes.end());
    }
    return text;
}

size_t ParameterSets::Longest() const
{
    size_t longest = 0;
    for (const Set &set : m_sets)
        longest = std::max(longest, set.bytes.size());
    return longest;
}

} // namespace kovastream
