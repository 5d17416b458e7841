#include "publisher.h"

#include "failure.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace kovastream {

namespace {

/// Tries the port first: the server's own result does not tell one reason from another.
void CheckPort(const Options &options)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(options.port));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (!options.address.empty())
        inet_pton(AF_INET, options.address.c_str(), &address.sin_addr);
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int one = 1;
    setsockopt(probe, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    const bool free =
        bind(probe, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0 &&
        listen(probe, 1) == 0;
    const int error = errno;
    close(probe);
    if (free)
        return;
    const std::string port = std::to_string(options.port);
    if (error == EADDRINUSE)
        throw Failure("port " + port +
                      " is taken: end the other program, or choose another port "
                      "with --port");
    if (error == EADDRNOTAVAIL)
        throw Failure("the address " + options.address +
                      " is not one of this machine: see  ip -4 address, or leave --address away");
    if (error == EACCES)
        throw Failure("port " + port + " needs root: choose one above 1023 with --port");
    throw Failure("port " + port + " cannot be opened: " + strerror(error));
}

} // namespace

Publisher::Publisher(const Options &options)
{
    CheckPort(options);
    char address[KOVA_ADDRESS_SIZE] = "";
    options.address.copy(address, sizeof(address) - 1);
    const int32_t result = KovaRtspServerInit(&m_server, address, options.port, options.maxClients);
    if (result != KOVA_OK)
        throw Failure("the server cannot be started (" + std::to_string(result) +
                      "): is another program taking port " + std::to_string(options.port) + "?");
    RTSP_SetLogLevel(options.logLevel);
}

Publisher::~Publisher()
{
    KovaRtspServerUninit(m_server);
}

void Publisher::Publish(const std::string &uri, const std::optional<KovaAudioDescription> &sound,
                        const std::optional<KovaVideoDescription> &picture, Published *published)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (published->Exchange(nullptr) != nullptr)
        KovaRtspServerRemoveUri(m_server, uri.c_str());
    KovaRtspStreamer *stream = KovaRtspServerAddUri(m_server, uri.c_str());
    if (stream == nullptr)
        throw Failure("the stream '" + uri + "' cannot be published: no memory or threads left");
    // The ids count from 96, and video belongs under 97, where the large ring is. Without sound
    // an audio type is added all the same and withdrawn, which uses 96 up.
    const KovaAudioDescription none = {64, 48000, 2};
    uint32_t id = 0;
    bool made = KovaRtspServerAddPayloadType(stream, KOVA_MEDIA_AUDIO, &id,
                                             sound ? &*sound : &none) == KOVA_OK &&
                id == KOVA_PAYLOAD_ID_AUDIO;
    if (!sound)
        KovaRtspServerRemovePayloadType(stream, id);
    if (picture)
        made = made &&
               KovaRtspServerAddPayloadType(stream, KOVA_MEDIA_VIDEO, &id, &*picture) == KOVA_OK &&
               id == KOVA_PAYLOAD_ID_VIDEO;
    if (!made)
        throw Failure("the tracks of '" + uri + "' cannot be published: no memory left");
    published->Exchange(stream);
}

KovaRtspStreamer *Published::Exchange(KovaRtspStreamer *stream)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_stream, stream);
}

void Published::Push(const Unit &unit, uint32_t milliseconds)
{
    const uint32_t id =
        unit.track == TrackKind::Sound ? KOVA_PAYLOAD_ID_AUDIO : KOVA_PAYLOAD_ID_VIDEO;
    const std::lock_guard<std::mutex> lock(m_mutex);
    KovaRtspServerPushData(m_stream, id, unit.bytes.data(),
                           static_cast<uint32_t>(unit.bytes.size()), milliseconds);
}

KovaRtspStatus Published::Read(uint32_t type) const
{
    KovaRtspStatus status = {};
    status.nType = type;
    const std::lock_guard<std::mutex> lock(m_mutex);
    KovaRtspServerGetStatus(m_stream, &status);
    return status;
}

int32_t Published::Clients() const
{
    return Read(KOVA_STATUS_CLIENT_COUNT).value.nClientCount;
}

uint32_t Published::KilobitsOut() const
{
    return Read(KOVA_STATUS_BITRATE).value.nBitrateWord[0];
}

uint32_t Published::Status() const
{
    return Read(KOVA_STATUS_STREAM).value.nStreamStatus;
}

} // namespace kovastream
