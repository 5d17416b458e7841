#include "door.h"

#include "failure.h"
#include "kova_rtsp_server.h"
#include "milliseconds.h"
#include "options.h"
#include "out_rate.h"
#include "port_check.h"

#include <mutex>
#include <utility>

namespace kovastream {

namespace {

class ClassicPublication : public Publication {
public:
    /// `publishing`: held while streams and tracks are added: their numbers count for all.
    ClassicPublication(KovaRtspServer *server, std::mutex *publishing, std::string uri)
        : m_server(server), m_publishing(publishing), m_uri(std::move(uri))
    {}

    void Publish(const Tracks &tracks) override;
    void Push(const Unit &unit, int64_t presentation) override;
    Served Look() override;

private:
    void AddTracks(KovaRtspStreamer *stream, const Tracks &tracks) const;
    KovaRtspStatus Read(uint32_t type) const;
    /// Returns what it was. Nobody uses that any more.
    KovaRtspStreamer *Exchange(KovaRtspStreamer *stream);

    KovaRtspServer *const m_server;
    std::mutex *const m_publishing;
    const std::string m_uri;

    std::mutex m_mutex;
    KovaRtspStreamer *m_stream = nullptr;
    Milliseconds m_milliseconds;
    uint64_t m_bytes = 0; ///< pushed
    OutRate m_out;
};

/// The ids count from 96, and video belongs under 97, where the large ring is. Without sound an
/// audio type is added all the same and withdrawn, which uses 96 up.
void ClassicPublication::AddTracks(KovaRtspStreamer *stream, const Tracks &tracks) const
{
    KovaAudioDescription sound = {64, 48000, 2};
    if (tracks.sound)
        sound = {tracks.sound->kilobits, tracks.sound->rate, tracks.sound->channels};
    uint32_t id = 0;
    bool made = KovaRtspServerAddPayloadType(stream, KOVA_MEDIA_AUDIO, &id, &sound) == KOVA_OK &&
                id == KOVA_PAYLOAD_ID_AUDIO;
    if (!tracks.sound)
        KovaRtspServerRemovePayloadType(stream, id);
    if (tracks.picture) {
        const KovaVideoDescription picture = {tracks.picture->kilobits};
        made = made &&
               KovaRtspServerAddPayloadType(stream, KOVA_MEDIA_VIDEO, &id, &picture) == KOVA_OK &&
               id == KOVA_PAYLOAD_ID_VIDEO;
    }
    if (!made)
        throw Failure("the tracks of '" + m_uri + "' cannot be published: no memory left");
}

void ClassicPublication::Publish(const Tracks &tracks)
{
    const std::lock_guard<std::mutex> lock(*m_publishing);
    if (Exchange(nullptr) != nullptr)
        KovaRtspServerRemoveUri(m_server, m_uri.c_str());
    KovaRtspStreamer *stream = KovaRtspServerAddUri(m_server, m_uri.c_str());
    if (stream == nullptr)
        throw Failure("the stream '" + m_uri + "' cannot be published: no memory or threads left");
    AddTracks(stream, tracks);
    Exchange(stream);
}

KovaRtspStreamer *ClassicPublication::Exchange(KovaRtspStreamer *stream)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_stream, stream);
}

void ClassicPublication::Push(const Unit &unit, int64_t presentation)
{
    const uint32_t id =
        unit.track == TrackKind::Sound ? KOVA_PAYLOAD_ID_AUDIO : KOVA_PAYLOAD_ID_VIDEO;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_bytes += unit.bytes.size();
    KovaRtspServerPushData(m_stream, id, unit.bytes.data(),
                           static_cast<uint32_t>(unit.bytes.size()),
                           m_milliseconds.Of(unit.track, presentation));
}

KovaRtspStatus ClassicPublication::Read(uint32_t type) const
{
    KovaRtspStatus status = {};
    status.nType = type;
    KovaRtspServerGetStatus(m_stream, &status);
    return status;
}

Served::State StateOf(uint32_t status)
{
    switch (status) {
    case KOVA_STREAM_IDLE:
        return Served::State::Idle;
    case KOVA_STREAM_FLOWING:
        return Served::State::Flowing;
    case KOVA_STREAM_STALLED:
        return Served::State::Stalled;
    default:
        return Served::State::NotReady;
    }
}

Served ClassicPublication::Look()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    Served served;
    served.state = StateOf(Read(KOVA_STATUS_STREAM).value.nStreamStatus);
    served.clients = Read(KOVA_STATUS_CLIENT_COUNT).value.nClientCount;
    served.kilobitsOut = m_out.Take(Read(KOVA_STATUS_BITRATE).value.nBitrateWord[0], served.clients,
                                    m_bytes, std::chrono::steady_clock::now());
    return served;
}

class ClassicPublisher : public Publisher {
public:
    explicit ClassicPublisher(const Options &options)
    {
        CheckPort(options);
        char address[KOVA_ADDRESS_SIZE] = "";
        options.address.copy(address, sizeof(address) - 1);
        const int32_t result =
            KovaRtspServerInit(&m_server, address, options.port, options.maxClients);
        if (result != KOVA_OK)
            throw Failure("the server cannot be started (" + std::to_string(result) +
                          "): is another program taking port " + std::to_string(options.port) +
                          "?");
        RTSP_SetLogLevel(options.logLevel);
    }
    ~ClassicPublisher() override
    {
        KovaRtspServerUninit(m_server);
    }
    ClassicPublisher(const ClassicPublisher &) = delete;
    ClassicPublisher &operator=(const ClassicPublisher &) = delete;

    std::unique_ptr<Publication> Add(const std::string &uri) override
    {
        return std::make_unique<ClassicPublication>(m_server, &m_publishing, uri);
    }

private:
    KovaRtspServer *m_server = nullptr;
    std::mutex m_publishing;
};

std::unique_ptr<Publisher> Open(const Options &options, Console *)
{
    return std::make_unique<ClassicPublisher>(options);
}

} // namespace

constexpr Door kClassicDoor = {
    {true, true, true, true},
    std::chrono::milliseconds(1200), // it sends everything a second behind its time
    "stopping: players are let go, which takes a second or two (Ctrl-C again ends at once)",
    Open};

} // namespace kovastream
