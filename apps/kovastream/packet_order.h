#pragma once

#include "demuxer.h"
#include "even_clock.h"

#include <array>
#include <deque>

namespace kovastream {

/// Reads ahead in files, so that picture and sound come in the order of their times: files may
/// keep a second of one in front of a second of the other. Where a file's clock breaks, as in one
/// that was joined from several, the order is that of a clock without the break. Live input is
/// passed on as it comes, since reading ahead would hold it up.
class PacketOrder {
public:
    explicit PacketOrder(Demuxer *demuxer);

    Demuxer::Result Next(AVPacket *packet);
    /// When the next picture that was read ahead is shown, microseconds; AV_NOPTS_VALUE if there is
    /// none, or it does not say.
    int64_t NextPicture() const;

private:
    struct Waiting {
        Packet packet;
        int64_t time; ///< on the even clock; AV_NOPTS_VALUE when the packet has none
    };
    bool IsFull() const;
    void ReadAhead();
    int64_t TimeOf(const AVPacket &packet);

    Demuxer *const m_demuxer;
    const bool m_ordered;
    EvenClock m_clock;
    std::array<std::deque<Waiting>, 2> m_waiting; ///< picture and sound
    size_t m_bytes = 0;
    Demuxer::Result m_end = Demuxer::Result::Got;
};

} // namespace kovastream
