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
        picture.reset();
        sets = {};
    }
    if (wish.picture && round.Picture().has_value()) {
        const AVCodecParameters &codec = *demuxer.Picture()->codecpar;
        const int64_t all = demuxer.BitRate();
        picture = {
            RateOf(*demuxer.Picture(), all > 0 ? static_cast<uint32_t>(all) : kUsualPicture)};
        sets = round.Picture()->Sets();
        width = codec.width;
        height = codec.height;
        if (unit != nullptr && unit->track == TrackKind::Picture)
            ReadSize(*unit, &width, &height);
    }
    if (wish.sound)
        sound.reset();
    if (wish.sound && round.Sound().has_value())
        sound = {RateOf(*demuxer.Sound(), kUsualSound), round.Sound()->SampleRate(),
                 round.Sound()->Channels()};
}

std::string Description::Contradiction(const Round &round, const Wish &wish, const Unit &unit)
{
    if ((wish.picture && round.Picture().has_value() != picture.has_value()) ||
        (wish.sound && round.Sound().has_value() != sound.has_value()))
        return "other tracks have come";
    if (unit.track == TrackKind::Picture)
        return sets.ContradictedBy(unit.bytes.data(), unit.bytes.size())
                   ? "the picture has other parameter sets"
                   : "";
    const uint32_t header = SharedHeader(unit);
    const uint32_t before = soundHeader.value_or(header);
    soundHeader = header;
    // With band replication what is declared may be twice the rate of the frames, from the first
    // one on. And a new picture may have brought the new declaration already.
    const bool declared = round.Sound()->SampleRate() == sound->nSampleRate &&
                          round.Sound()->Channels() == sound->nChannels;
    const bool otherProfile = ((before ^ header) & kProfile) != 0;
    return before == header || (declared && !otherProfile) ? "" : "the sound has another format";
}

std::string Description::About() const
{
    char text[128] = "";
    std::string about;
    if (picture.has_value()) {
        snprintf(text, sizeof(text), "H.264 %dx%d", width, height);
        about = text;
    }
    if (sound.has_value()) {
        snprintf(text, sizeof(text), "AAC %u Hz, %u %s", sound->nSampleRate, sound->nChannels,
                 sound->nChannels == 1 ? "channel" : "channels");
        about += about.empty() ? text : std::string(", ") + text;
    }
    return about;
}

} // namespace kovastream
