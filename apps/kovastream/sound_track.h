#pragma once

#include "ffmpeg.h"
#include "unit.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace kovastream {

/// Turns the packets of an AAC track into single frames with an ADTS header without CRC, which is
/// what the library takes.
class SoundTrack {
public:
    /// Throws Failure for a configuration that ADTS or the library cannot express.
    SoundTrack(const std::string &input, const AVStream &stream);

    enum class Result {
        Unit,
        TooLarge, ///< frames of this length never reach a player
        None,
    };
    /// Fills the unit from the packet, which is used up. Throws Failure when the sound goes on in a
    /// form that ADTS or the library cannot express.
    Result Convert(AVPacket *packet, Unit *unit);

    /// Hz, of the frames themselves: half the output's rate with spectral band replication.
    uint32_t SampleRate() const;
    uint32_t Channels() const;

private:
    void ReadConfiguration(const uint8_t *bytes, int size);
    [[noreturn]] void Refuse() const;
    bool FollowHeader(const AVPacket &packet);
    void Frame(const AVPacket &packet, Unit *unit) const;
    void Stamp(const AVPacket &packet, Unit *unit);

    const std::string m_input;
    const AVRational m_timeBase;
    bool m_framed = true; ///< the packets have ADTS headers already
    uint32_t m_rateIndex = 0;
    uint32_t m_channels = 0;
    using Header = std::array<uint32_t, 3>; ///< profile, rate and channels of an ADTS header
    std::optional<Header> m_header;         ///< the one that counts
    Header m_lastHeader = {};
    int m_repeats = 0;  ///< of the last one
    int64_t m_next = 0; ///< when the frame behind the last one begins
};

} // namespace kovastream
