#include "description.h"

#include "ffmpeg.h"

#include <cstdio>

namespace kovastream {

namespace {

constexpr uint32_t kUsualPicture = 2000; // kbit/s
constexpr uint32_t kUsualSound = 128;

uint32_t RateOf(const AVStream &stream, uint32_t usual)
{
    const int64_t known = stream.codecpar->bit_rate / 1000;
    return known > 0 ? static_cast<uint32_t>(known) : usual;
}

/// Profile, sampling frequency and channels (ISO/IEC 13818-7, 6.2).
uint32_t SharedHeader(const Unit &unit)
{
    return (unit.bytes[2] & 0xFDU) << 8 | (unit.bytes[3] & 0xC0U);
}

constexpr uint32_t kProfile = 0xC000;

/// The size of a key frame's pictures, as its parameter sets say; left alone when it has none.
void ReadSize(const Unit &unit, int *width, int *height)
{
    const Parser parser(Made(av_parser_init(AV_CODEC_ID_H264)));
    const Codec codec(Made(avcodec_alloc_context3(nullptr)));
    parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    std::vector<uint8_t> padded = unit.bytes;
    padded.resize(unit.bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE);
    uint8_t *parsed = nullptr;
    int size = 0;
    av_parser_parse2(parser.get(), codec.get(), &parsed, &size, padded.data(),
                     static_cast<int>(unit.bytes.size()), AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
    if (parser->width > 0) {
        *width = parser->width;
        *height = parser->height;
    }
}

} // namespace

void Description::Take(const Demuxer &demuxer, const Round &round, const Wish &wish,
                       const Unit *unit)
{
    if (wish.picture) {
        tracks.picture.reset();
        sets = {};
    }
    if (wish.picture && round.Picture().has_value()) {
        const AVCodecParameters &codec = *demuxer.Picture()->codecpar;
        const int64_t all = demuxer.BitRate();
        tracks.picture = {
            RateOf(*demuxer.Picture(), all > 0 ? static_cast<uint32_t>(all) : kUsualPicture)};
        sets = round.Picture()->Sets();
        // Of an input that has changed since, it says what was at its beginning.
        if (unit == nullptr || declaredWidth != codec.width) {
            width = codec.width;
            height = codec.height;
        }
        declaredWidth = codec.width;
        if (unit != nullptr && unit->track == TrackKind::Picture)
            ReadSize(*unit, &width, &height);
    }
    if (wish.sound)
        tracks.sound.reset();
    if (wish.sound && round.Sound().has_value())
        tracks.sound = {RateOf(*demuxer.Sound(), kUsualSound), round.Sound()->SampleRate(),
                        round.Sound()->Channels(), round.Sound()->Configuration()};
}

bool Description::ContradictsSound(const SoundTrack &track, const Unit &unit)
{
    if (track.Configuration() != tracks.sound->configuration)
        return true;
    if (!track.Configuration().empty())
        return false;
    const uint32_t header = SharedHeader(unit);
    const uint32_t before = soundHeader.value_or(header);
    soundHeader = header;
    if (before == header)
        return false;
    // With band replication what is declared may be twice the rate of the frames, from the first
    // one on. And a new picture may have brought the new declaration already.
    const bool declared =
        track.SampleRate() == tracks.sound->rate && track.Channels() == tracks.sound->channels;
    const bool otherProfile = ((before ^ header) & kProfile) != 0;
    return !declared || otherProfile;
}

std::string Description::Contradiction(const Round &round, const Wish &wish, const Unit &unit)
{
    if ((wish.picture && round.Picture().has_value() != tracks.picture.has_value()) ||
        (wish.sound && round.Sound().has_value() != tracks.sound.has_value()))
        return "other tracks have come";
    if (unit.track == TrackKind::Sound)
        return ContradictsSound(*round.Sound(), unit) ? "the sound has another format" : "";
    if (!sets.ContradictedBy(unit.bytes.data(), unit.bytes.size()))
        return "";
    if (limits.fixedSets)
        return "the picture has other parameter sets";
    sets.Take(unit.bytes.data(), unit.bytes.size());
    ReadSize(unit, &width, &height);
    return "";
}

std::string Description::About() const
{
    char text[128] = "";
    std::string about;
    if (tracks.picture.has_value()) {
        about = "H.264";
        if (width > 0)
            about += " " + std::to_string(width) + "x" + std::to_string(height);
    }
    if (tracks.sound.has_value()) {
        snprintf(text, sizeof(text), "AAC %u Hz, %u %s", tracks.sound->rate, tracks.sound->channels,
                 tracks.sound->channels == 1 ? "channel" : "channels");
        about += about.empty() ? text : std::string(", ") + text;
    }
    return about;
}

} // namespace kovastream
