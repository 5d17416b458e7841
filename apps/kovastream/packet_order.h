#pragma once

#include "demuxer.h"

#include <array>
#include <deque>

namespace kovastream {

/// Reads ahead in files, so that picture and sound come in the order of their times: files may
/// keep a second of one in front of a second of the other. Live input is passed on as it comes,
/// since reading ahead would hold it up.
class PacketOrder {
public:
    explicit PacketOrder(Demuxer *demuxer);

    Demuxer::Result Next(AVPacket *packet);
    /// When the next picture that was read ahead is shown, microseconds; AV_NOPTS_VALUE if there is
    /// none, or it does not say.
    int64_t NextPicture() const;

private:
    bool IsFull() const;
    int64_t TimeOf(const AVPacket &packet) const;

    Demuxer *const m_demuxer;
    const bool m_ordered;
    std::array<std::deque<Packet>, 2> m_waiting; ///< picture and sound
    size_t m_bytes = 0;
    Demuxer::Result m_end = Demuxer::Result::Got;
};

} // namespace kovastream
