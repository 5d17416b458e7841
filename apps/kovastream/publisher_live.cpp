#include "door.h"

#include "console.h"
#include "failure.h"
#include "live_publication.h"
#include "options.h"
#include "password_file.h"
#include "player_lines.h"
#include "port_check.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>

namespace kovastream {

namespace {

int32_t LogLevel(const Options &options)
{
    switch (options.libraryLines) {
    case LibraryLines::None:
        return 0;
    case LibraryLines::Failures:
        return KOVA_LIVE_LOG_ERROR;
    case LibraryLines::All:
        break;
    }
    return static_cast<int32_t>(std::min<uint32_t>(options.logLevel, KOVA_LIVE_LOG_DEBUG));
}

class LivePublisher : public Publisher {
public:
    LivePublisher(const Options &options, Console *console);
    ~LivePublisher() override
    {
        KovaLiveClose(m_live);
    }
    LivePublisher(const LivePublisher &) = delete;
    LivePublisher &operator=(const LivePublisher &) = delete;

    std::unique_ptr<Publication> Add(const std::string &uri) override;

private:
    static void OnEvent(void *publisher, const KovaLiveEvent *event);
    static void OnLog(void *publisher, int32_t level, const char *text);
    void Note(const LivePublication *publication, const KovaLiveStream *stream);
    std::string UriOf(const KovaLiveStream *stream);

    Console *const m_console;
    const bool m_visits;  ///< players that come and go are said
    const bool m_listing; ///< the status lists players
    KovaLive *m_live = nullptr;

    std::mutex m_mutex; ///< nothing of the server is called while it is held
    std::map<const LivePublication *, const KovaLiveStream *> m_handles;
};

LivePublisher::LivePublisher(const Options &options, Console *console)
    : m_console(console), m_visits(options.status == StatusForm::Players),
      m_listing(options.status == StatusForm::Players || options.status == StatusForm::Json)
{
    KovaLiveConfig config = {};
    config.size = sizeof(config);
    config.address = options.address.c_str();
    config.port = static_cast<uint16_t>(options.port);
    config.udp_first = options.udpPorts.first;
    config.udp_last = options.udpPorts.last;
    config.threads = options.threads;
    config.max_connections = options.maxConnections;
    config.max_sessions = static_cast<uint32_t>(options.maxClients);
    config.delay_ms = options.delay;
    config.log_level = LogLevel(options);
    config.on_log = OnLog;
    config.on_event = OnEvent;
    config.context = this;
    Password password;
    KovaLiveUser user = {};
    if (!options.user.empty()) {
        password = ReadPassword(options.passwordFile);
        if (password.exposed)
            console->Print("warning: everybody on this machine can read the password file '" +
                           options.passwordFile + "': chmod 600 " + options.passwordFile);
        user = {options.user.c_str(), password.text.c_str()};
        config.users = &user;
        config.user_count = 1;
    }
    const int32_t result = KovaLiveOpen(&config, &m_live);
    if (result == KOVA_LIVE_OK)
        return;
    CheckPort(options);
    throw Failure(std::string("the server cannot be started: ") + KovaLiveErrorText(result));
}

std::unique_ptr<Publication> LivePublisher::Add(const std::string &uri)
{
    return std::make_unique<LivePublication>(
        m_live, uri, m_listing,
        [this](const LivePublication *publication, const KovaLiveStream *stream) {
            Note(publication, stream);
        });
}

void LivePublisher::Note(const LivePublication *publication, const KovaLiveStream *stream)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (stream != nullptr)
        m_handles[publication] = stream;
    else
        m_handles.erase(publication);
}

/// Empty for one that has gone meanwhile.
std::string LivePublisher::UriOf(const KovaLiveStream *stream)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto &[publication, handle] : m_handles) {
        if (handle == stream)
            return publication->Uri();
    }
    return "";
}

void LivePublisher::OnEvent(void *publisher, const KovaLiveEvent *event)
{
    auto *self = static_cast<LivePublisher *>(publisher);
    const std::string uri = self->UriOf(event->stream);
    const std::string line = uri.empty() ? "" : LineOf(*event, uri, self->m_visits);
    if (!line.empty())
        self->m_console->Print(line);
}

void LivePublisher::OnLog(void *publisher, int32_t level, const char *text)
{
    static_cast<LivePublisher *>(publisher)->m_console->PrintServer(Stamped(level, text) + "\n");
}

std::unique_ptr<Publisher> Open(const Options &options, Console *console)
{
    return std::make_unique<LivePublisher>(options, console);
}

} // namespace

constexpr Door kLiveDoor = {{},
                            std::chrono::milliseconds(200),
                            "stopping: players are let go (Ctrl-C again ends at once)",
                            Open};

} // namespace kovastream
