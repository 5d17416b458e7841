#include "round.h"

#include "failure.h"

#include <algorithm>
#include <cstdio>

namespace kovastream {

namespace {

constexpr char kRescue[] =
    "; get it again, or save what is there:  ffmpeg -v error -i IN -c copy OUT.mkv";

/// What a file may lack at its end besides a tenth, microseconds: lengths are rounded.
constexpr int64_t kMissing = 500000;

} // namespace

bool IsCutOff(int64_t reached, int64_t declared)
{
    return declared != AV_NOPTS_VALUE && reached + kMissing + declared / 10 < declared;
}

Round::Round(Demuxer *demuxer, double fps, const Limits &limits)
    : m_demuxer(demuxer), m_packets(demuxer), m_packet(Made(av_packet_alloc()))
{
    if (demuxer->Picture() != nullptr)
        m_picture.emplace(demuxer->Input(), *demuxer->Picture(), demuxer->IsRawVideo(), fps,
                          limits);
    if (demuxer->Sound() != nullptr)
        m_sound.emplace(demuxer->Input(), *demuxer->Sound(), limits);
    if (demuxer->Kind() == SourceKind::File) {
        Unit first;
        if (Next(&first) == Demuxer::Result::Got)
            m_first = std::move(first);
    }
}

Demuxer::Result Round::Next(Unit *unit)
{
    if (m_first.has_value()) {
        *unit = std::move(*m_first);
        m_first.reset();
        return Demuxer::Result::Got;
    }
    const Demuxer::Result result = Read(unit);
    if (m_demuxer->Kind() != SourceKind::File)
        return result;
    if (result == Demuxer::Result::Broken)
        throw Failure("'" + m_demuxer->Input() +
                      "' is broken: " + ErrorText(m_demuxer->LastError()) + kRescue);
    if (result == Demuxer::Result::End)
        CheckEnd();
    return result;
}

Demuxer::Result Round::Read(Unit *unit)
{
    for (;;) {
        const Demuxer::Result result = m_packets.Next(m_packet.get());
        if (result != Demuxer::Result::Got)
            return result;
        if (!Convert(unit))
            continue;
        if (!m_begun)
            FindOrigin(*unit);
        m_begun = true;
        if (IsPriming(*unit))
            continue;
        m_reached = std::max(m_reached, unit->presentation + unit->duration);
        return result;
    }
}

/// Encoders put a frame in front that primes decoders. Over the end of the input before it would be
/// one too many. Further on, sound lies before the origin where the clock has stepped back.
bool Round::IsPriming(const Unit &unit)
{
    if (unit.track != TrackKind::Sound || m_heard)
        return false;
    m_heard = unit.presentation + unit.duration / 2 >= m_origin;
    return !m_heard;
}

/// A file that was cut off ends like any other for its demuxer.
void Round::CheckEnd() const
{
    if (m_demuxer->Stopped())
        return;
    if (!m_begun)
        throw Failure("'" + m_demuxer->Input() + "' is broken: no picture or sound can be read" +
                      kRescue);
    const int64_t declared = m_demuxer->DeclaredEnd();
    if (IsCutOff(m_reached, declared)) {
        char text[64];
        snprintf(text, sizeof(text), "%.1f of %.1f seconds", static_cast<double>(m_reached) / 1e6,
                 static_cast<double>(declared) / 1e6);
        throw Failure("'" + m_demuxer->Input() + "' is cut off: it has " + text + kRescue);
    }
}

bool Round::Convert(Unit *unit)
{
    const AVStream *picture = m_demuxer->Picture();
    if (picture != nullptr && m_packet->stream_index == picture->index)
        return m_picture->Convert(m_packet.get(), unit);
    const SoundTrack::Result result = m_sound->Convert(m_packet.get(), unit);
    m_leftOut |= result == SoundTrack::Result::TooLarge;
    return result == SoundTrack::Result::Unit;
}

/// The start of both tracks, so that they stay together and none comes before the beginning.
void Round::FindOrigin(const Unit &unit)
{
    if (m_demuxer->IsRawVideo())
        m_origin = 0;
    else if (m_demuxer->Start() != AV_NOPTS_VALUE)
        m_origin = m_demuxer->Start();
    else
        m_origin = unit.presentation;
    // A file that was trimmed without encoding begins with pictures that lie before its start: the
    // first one that is shown needs them.
    const int64_t picture =
        unit.track == TrackKind::Picture ? unit.presentation : m_packets.NextPicture();
    if (picture != AV_NOPTS_VALUE && !m_demuxer->IsRawVideo())
        m_origin = std::min(m_origin, picture);
}

} // namespace kovastream
