#pragma once

#include <cstdint>
#include <vector>

/// Writes as much H.264 as parsers look at: parameter sets and slice headers (ITU-T H.264, 7.3).
/// Order counts have eight bits.
class H264Writer {
public:
    using Bytes = std::vector<uint8_t>;

    enum class Slice {
        Idr,
        P,
        B, ///< not a reference
    };

    /// An SPS of 320x192 pictures in Main profile, which does not say how far they are reordered.
    static Bytes Sps();
    static Bytes Pps();
    /// A picture of one slice.
    static Bytes Picture(Slice kind, int order, int frame);
    /// A unit of supplemental information with one message of so many bytes.
    static Bytes Sei(int type, int size);

private:
    explicit H264Writer(uint8_t header);
    void Bits(uint32_t value, int count);
    void Number(uint32_t value);
    Bytes Done();

    Bytes m_bytes;
    uint32_t m_open = 0;
    int m_count = 0;
};
