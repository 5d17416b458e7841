#include "figures.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>

namespace kovastream {

namespace {

struct Words {
    const char *people;
    const char *programs;
};

Words WordsFor(const Figures &figures)
{
    switch (figures.input) {
    case Figures::Input::Opening:
        return {"no input yet", "opening"};
    case Figures::Input::Waiting:
        return {"no input", "waiting"};
    case Figures::Input::Ended:
        return {"ended", "ended"};
    case Figures::Input::Flowing:
        break;
    }
    switch (figures.served.state) {
    case Served::State::Idle:
        return {"no viewers", "idle"};
    case Served::State::Flowing:
        return {"streaming", "flowing"};
    case Served::State::Stalled:
        return {"stalled", "stalled"};
    case Served::State::NotReady:
        break;
    }
    return {"getting ready", "not_ready"};
}

__attribute__((format(printf, 1, 2))) std::string Text(const char *format, ...)
{
    char text[2048];
    va_list values;
    va_start(values, format);
    vsnprintf(text, sizeof(text), format, values);
    va_end(values);
    return text;
}

std::string Clock(int64_t seconds)
{
    const auto whole = static_cast<long long>(seconds);
    return Text("%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60);
}

/// A user's name within quotes (RFC 8259, 7). It has no control characters.
std::string Escaped(const std::string &text)
{
    std::string escaped;
    for (const char c : text) {
        if (c == '"' || c == '\\')
            escaped += '\\';
        escaped += c;
    }
    return escaped;
}

std::string PlayerJson(const Player &player)
{
    return Text("{\"address\":\"%s\",\"port\":%u,\"transport\":\"%s\",\"user\":\"%s\","
                "\"playing\":%.3f,\"out_kbps\":%.0f,\"late_packets\":%llu,\"loss\":%.3f,"
                "\"jitter_ms\":%.1f,\"round_trip_ms\":%.1f,\"paused\":%s}",
                player.address.c_str(), static_cast<unsigned>(player.port),
                player.interleaved ? "tcp" : "udp", Escaped(player.user).c_str(), player.playing,
                player.kilobitsOut, static_cast<unsigned long long>(player.late), player.loss,
                player.jitter, player.roundTrip, player.paused ? "true" : "false");
}

/// Behind the other fields, so that those stay where they were before there was a list.
std::string PlayersJson(const Served &served)
{
    if (!served.listed)
        return "";
    std::string list;
    for (const Player &player : served.players)
        list += (list.empty() ? "" : ",") + PlayerJson(player);
    return ",\"players\":[" + list + "]";
}

} // namespace

Rates RatesBetween(const Figures &before, const Figures &now, double seconds)
{
    if (seconds <= 0)
        return {0, 0};
    return {static_cast<double>(now.pictures - before.pictures) / seconds,
            static_cast<double>(now.bytes - before.bytes) * 8 / 1000 / seconds};
}

std::vector<std::string> StatusFields(const Figures &figures, const Rates &rates)
{
    return {figures.uri,
            // As wide as the longest, so that what is behind it stays in its place.
            Text("%-13s", WordsFor(figures).people), Clock(figures.position / 1000000),
            Text("%.1f fps", rates.fps),
            Text("%d of %d %s", figures.served.clients, figures.maxClients,
                 figures.maxClients == 1 ? "client" : "clients"),
            Text("%.0f kbit/s in", rates.kilobitsIn),
            Text("%.0f kbit/s out", figures.served.kilobitsOut)};
}

std::vector<std::string> PlayerFields(const Player &player)
{
    return {"  " + player.address + ":" + std::to_string(player.port),
            std::string(player.interleaved ? "TCP" : "UDP") + (player.paused ? " paused" : ""),
            Clock(static_cast<int64_t>(player.playing)),
            "",
            player.user,
            Text("%.1f %% lost", player.loss * 100),
            Text("%.0f kbit/s out", player.kilobitsOut),
            Text("%llu late", static_cast<unsigned long long>(player.late)),
            Text("jitter %.0f ms", player.jitter)};
}

std::string StatusJson(const Figures &figures, const Rates &rates)
{
    const time_t now = time(nullptr);
    tm utc = {};
    gmtime_r(&now, &utc);
    char stamp[32];
    strftime(stamp, sizeof(stamp), "%Y-%m-%dT%H:%M:%SZ", &utc);
    // A URI has no character that would have to be escaped.
    return Text("{\"time\":\"%s\",\"uri\":\"%s\",\"position\":%.3f,\"fps\":%.1f,\"in_kbps\":%.1f,"
                "\"clients\":%d,\"out_kbps\":%.0f,\"status\":\"%s\",\"max_clients\":%d",
                stamp, figures.uri.c_str(), static_cast<double>(figures.position) / 1e6, rates.fps,
                rates.kilobitsIn, figures.served.clients, figures.served.kilobitsOut,
                WordsFor(figures).programs, figures.maxClients) +
           PlayersJson(figures.served) + "}";
}

} // namespace kovastream
