#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kovastream {

/// The parameter sets of a picture track (SPS and PPS), the newest of each id.
class ParameterSets {
public:
    /// Takes over those in an Annex B text. Returns how many of different ids it has.
    size_t Take(const uint8_t *bytes, size_t size);
    /// Whether an Annex B text has a set that is not this one any more, or another SPS. A further
    /// PPS changes nothing for those who know the others.
    bool ContradictedBy(const uint8_t *bytes, size_t size) const;

    size_t Count() const
    {
        return m_sets.size();
    }
    /// All of them as an Annex B text, in the order in which they came.
    std::vector<uint8_t> Text() const;
    /// Bytes of the longest.
    size_t Longest() const;

private:
    struct Set {
        int type;
        uint32_t id;
        std::vector<uint8_t> bytes;
    };
    const Set *Find(const Set &like) const;
    template <typename Use> static void ForEach(const uint8_t *bytes, size_t size, Use use);

    std::vector<Set> m_sets;
};

} // namespace kovastream
