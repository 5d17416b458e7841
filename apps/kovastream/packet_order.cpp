#include "packet_order.h"

namespace kovastream {

namespace {

// Bounds of reading ahead, for files where one of the tracks ends early.
constexpr size_t kMostPackets = 512;
constexpr size_t kMostBytes = size_t{16} * 1024 * 1024;

constexpr AVRational kMicroseconds = {1, 1000000};

} // namespace

PacketOrder::PacketOrder(Demuxer *demuxer)
    : m_demuxer(demuxer), m_ordered(demuxer->Kind() == SourceKind::File &&
                                    demuxer->Picture() != nullptr && demuxer->Sound() != nullptr)
{}

bool PacketOrder::IsFull() const
{
    return m_waiting[0].size() + m_waiting[1].size() >= kMostPackets || m_bytes >= kMostBytes;
}

int64_t PacketOrder::TimeOf(const AVPacket &packet)
{
    const bool picture = packet.stream_index == m_demuxer->Picture()->index;
    const AVRational base = (picture ? m_demuxer->Picture() : m_demuxer->Sound())->time_base;
    const int64_t time = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
    if (time == AV_NOPTS_VALUE)
        return time;
    const int64_t decode = av_rescale_q(time, base, kMicroseconds);
    return decode + m_clock.Follow(picture ? TrackKind::Picture : TrackKind::Sound, decode,
                                   av_rescale_q(packet.duration, base, kMicroseconds));
}

/// Reads until there is a packet of each track.
void PacketOrder::ReadAhead()
{
    while (m_end == Demuxer::Result::Got && !IsFull() &&
           (m_waiting[0].empty() || m_waiting[1].empty())) {
        Packet read(Made(av_packet_alloc()));
        m_end = m_demuxer->Read(read.get());
        if (m_end != Demuxer::Result::Got)
            return;
        m_bytes += static_cast<size_t>(read->size);
        const size_t track = read->stream_index == m_demuxer->Picture()->index ? 0 : 1;
        const int64_t time = TimeOf(*read);
        m_waiting[track].push_back({std::move(read), time});
    }
}

Demuxer::Result PacketOrder::Next(AVPacket *packet)
{
    if (!m_ordered)
        return m_demuxer->Read(packet);
    ReadAhead();
    if (m_waiting[0].empty() && m_waiting[1].empty())
        return m_end;
    // A packet without a time, the smallest value, goes out at once.
    const bool sound =
        m_waiting[0].empty() ||
        (!m_waiting[1].empty() && m_waiting[1].front().time < m_waiting[0].front().time);
    std::deque<Waiting> &from = m_waiting[sound ? 1 : 0];
    av_packet_move_ref(packet, from.front().packet.get());
    from.pop_front();
    m_bytes -= static_cast<size_t>(packet->size);
    return Demuxer::Result::Got;
}

int64_t PacketOrder::NextPicture() const
{
    if (m_waiting[0].empty() || m_waiting[0].front().packet->pts == AV_NOPTS_VALUE)
        return AV_NOPTS_VALUE;
    return av_rescale_q(m_waiting[0].front().packet->pts, m_demuxer->Picture()->time_base,
                        kMicroseconds);
}

} // namespace kovastream
