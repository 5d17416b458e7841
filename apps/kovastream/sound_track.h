#pragma once

#include "ffmpeg.h"
#include "server_limits.h"
#include "unit.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kovastream {

/// Turns the packets of an AAC track into single frames: as they are, with an ADTS header or a
/// configuration beside them; for a server of plain sound all with an ADTS header without CRC.
class SoundTrack {
public:
    /// Throws Failure for a configuration that RTP cannot carry, or not within the limits.
    SoundTrack(const std::string &input, const AVStream &stream, const Limits &limits);

    enum class Result {
        Unit,
        TooLarge, ///< frames of this length never reach a player
        None,
    };
    /// Fills the unit from the packet, which is used up. Throws Failure when the sound goes on in a
    /// form that cannot be carried.
    Result Convert(AVPacket *packet, Unit *unit);

    /// Hz. With an ADTS header, and for a server of plain sound, that of the frames themselves:
    /// half the output's rate with spectral band replication.
    uint32_t SampleRate() const
    {
        return m_rate;
    }
    uint32_t Channels() const
    {
        return m_channels;
    }
    /// AudioSpecificConfig of units that have no ADTS header; empty when they have one.
    const std::vector<uint8_t> &Configuration() const
    {
        return m_configuration;
    }

private:
    void ReadConfiguration(const uint8_t *bytes, int size);
    void ReadPlain(const uint8_t *bytes, int size);
    [[noreturn]] void Refuse() const;
    bool IsUsable(uint32_t profile, uint32_t channels) const;
    bool FollowHeader(const AVPacket &packet);
    void Frame(const AVPacket &packet, Unit *unit) const;
    void Stamp(const AVPacket &packet, Unit *unit);

    const std::string m_input;
    const AVRational m_timeBase;
    const bool m_plain;
    bool m_framed = true; ///< the packets have ADTS headers already
    std::vector<uint8_t> m_configuration;
    uint32_t m_rate;
    uint32_t m_channels;
    using Header = std::array<uint32_t, 3>; ///< profile, rate and channels of an ADTS header
    std::optional<Header> m_header;         ///< the one that counts
    Header m_lastHeader = {};
    int m_repeats = 0;  ///< of the last one
    int64_t m_next = 0; ///< when the frame behind the last one begins
};

} // namespace kovastream
