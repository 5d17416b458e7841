#include "live_publication.h"

#include "failure.h"

#include <utility>

namespace kovastream {

namespace {

/// Sound and picture have the payload types that the classic server gives them: those who read a
/// description find the same in both.
constexpr uint32_t kSoundType = 96;
constexpr uint32_t kPictureType = 97;

/// Streams of few pictures send nothing in many a second.
constexpr std::chrono::seconds kStalled{3};

[[noreturn]] void Refuse(const std::string &uri, int32_t result)
{
    throw Failure("the stream '" + uri + "' cannot be published: " + KovaLiveErrorText(result));
}

uint64_t SentBytes(KovaLiveStream *stream)
{
    KovaLiveStreamNumbers numbers = {};
    numbers.size = sizeof(numbers);
    return KovaLiveStreamFigures(stream, &numbers) == KOVA_LIVE_OK ? numbers.bytes : 0;
}

Player PlayerOf(const KovaLivePlayer &record)
{
    Player player;
    player.address = record.address;
    player.port = record.port;
    player.interleaved = record.interleaved != 0;
    player.paused = record.paused != 0;
    player.user = record.user;
    player.playing = static_cast<double>(record.playing_us) / 1e6;
    player.late = record.late_packets;
    player.loss = record.loss / 256.0;
    player.jitter = record.jitter_us / 1000.0;
    player.roundTrip = record.round_trip_us / 1000.0;
    return player;
}

/// Room for some more than there were: others may come before the second call.
std::vector<KovaLivePlayer> PlayersOf(KovaLive *live)
{
    constexpr uint32_t kMore = 16;
    uint32_t count = 0;
    KovaLivePlayers(live, nullptr, 0, &count);
    std::vector<KovaLivePlayer> records(count + kMore);
    records[0].size = sizeof(records[0]);
    if (KovaLivePlayers(live, records.data(), count + kMore, &count) != KOVA_LIVE_OK)
        count = 0;
    if (count < records.size())
        records.resize(count);
    return records;
}

} // namespace

LivePublication::LivePublication(KovaLive *live, std::string uri, bool listing, OnHandle onHandle)
    : m_live(live), m_uri(std::move(uri)), m_listing(listing), m_onHandle(std::move(onHandle))
{}

LivePublication::~LivePublication()
{
    Withdraw();
}

void LivePublication::Withdraw()
{
    if (m_stream == nullptr)
        return;
    m_bytesBefore += SentBytes(m_stream);
    m_onHandle(this, nullptr);
    KovaLiveRemoveStream(m_stream);
    m_stream = nullptr;
    m_picture = nullptr;
    m_sound = nullptr;
}

KovaLiveTrack *LivePublication::AddTrack(const KovaLiveTrackConfig &config)
{
    KovaLiveTrack *track = nullptr;
    const int32_t result = KovaLiveAddTrack(m_stream, &config, &track);
    if (result != KOVA_LIVE_OK)
        Refuse(m_uri, result);
    return track;
}

void LivePublication::Add(const Tracks &tracks)
{
    KovaLiveStreamConfig config = {};
    config.size = sizeof(config);
    // Files and pipes make no key frame when one is asked for.
    config.keep_group = 1;
    const int32_t result = KovaLiveAddStream(m_live, m_uri.c_str(), &config, &m_stream);
    if (result != KOVA_LIVE_OK)
        Refuse(m_uri, result);
    m_onHandle(this, m_stream);
    if (tracks.sound) {
        const std::vector<uint8_t> &configuration = tracks.sound->configuration;
        KovaLiveTrackConfig sound = {};
        sound.size = sizeof(sound);
        sound.codec = KOVA_LIVE_AAC;
        sound.form = configuration.empty() ? KOVA_LIVE_FORM_ADTS : KOVA_LIVE_FORM_RAW;
        sound.payload_type = kSoundType;
        sound.audio_config = configuration.data();
        sound.audio_config_size = static_cast<uint32_t>(configuration.size());
        m_sound = AddTrack(sound);
    }
    if (tracks.picture) {
        KovaLiveTrackConfig picture = {};
        picture.size = sizeof(picture);
        picture.codec = KOVA_LIVE_H264;
        picture.payload_type = kPictureType;
        m_picture = AddTrack(picture);
    }
}

void LivePublication::Publish(const Tracks &tracks)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    Withdraw();
    Add(tracks);
}

void LivePublication::Push(const Unit &unit, int64_t presentation)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    KovaLiveTrack *track = unit.track == TrackKind::Sound ? m_sound : m_picture;
    // Without memory the unit is counted as dropped; one that is damaged has nothing to send.
    if (track != nullptr)
        KovaLivePush(track, unit.bytes.data(), unit.bytes.size(), presentation);
}

void LivePublication::List(Time now, std::vector<Player> *players)
{
    std::map<uint64_t, SlidingRate> rates;
    for (const KovaLivePlayer &record : PlayersOf(m_live)) {
        if (record.stream != m_stream)
            continue;
        SlidingRate &rate = rates[record.player] = std::move(m_players[record.player]);
        players->push_back(PlayerOf(record));
        players->back().kilobitsOut = rate.Take(record.bytes, now);
    }
    m_players = std::move(rates);
}

Served LivePublication::Look()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const Time now = std::chrono::steady_clock::now();
    Served served;
    KovaLiveStreamNumbers numbers = {};
    numbers.size = sizeof(numbers);
    if (m_stream == nullptr || KovaLiveStreamFigures(m_stream, &numbers) != KOVA_LIVE_OK)
        return served;
    const uint64_t bytes = m_bytesBefore + numbers.bytes;
    if (bytes != m_bytes)
        m_flowed = now;
    m_bytes = bytes;
    served.clients = static_cast<int32_t>(numbers.players);
    // The mean is of the time in which somebody watches.
    if (numbers.players == 0)
        m_out = {};
    served.kilobitsOut = m_out.Take(bytes, now);
    if (numbers.ready == 0)
        served.state = Served::State::NotReady;
    else if (numbers.players == 0)
        served.state = Served::State::Idle;
    else
        served.state = now - m_flowed < kStalled ? Served::State::Flowing : Served::State::Stalled;
    served.listed = true;
    if (m_listing)
        List(now, &served.players);
    return served;
}

} // namespace kovastream
