#include "figures.h"

#include "kova_rtsp_server.h"

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
    switch (figures.status) {
    case KOVA_STREAM_IDLE:
        return {"no viewers", "idle"};
    case KOVA_STREAM_FLOWING:
        return {"streaming", "flowing"};
    case KOVA_STREAM_STALLED:
        return {"stalled", "stalled"};
    default:
        return {"getting ready", "not_ready"};
    }
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
    const auto seconds = static_cast<long long>(figures.position / 1000000);
    return {figures.uri,
            // As wide as the longest, so that what is behind it stays in its place.
            Text("%-13s", WordsFor(figures).people),
            Text("%lld:%02lld:%02lld", seconds / 3600, seconds / 60 % 60, seconds % 60),
            Text("%.1f fps", rates.fps),
            Text("%d of %d %s", figures.clients, figures.maxClients,
                 figures.maxClients == 1 ? "client" : "clients"),
            Text("%.0f kbit/s in", rates.kilobitsIn), Text("%.0f kbit/s out", rates.kilobitsOut)};
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
                "\"clients\":%d,\"out_kbps\":%.0f,\"status\":\"%s\",\"max_clients\":%d}",
                stamp, figures.uri.c_str(), static_cast<double>(figures.position) / 1e6, rates.fps,
                rates.kilobitsIn, figures.clients, rates.kilobitsOut, WordsFor(figures).programs,
                figures.maxClients);
}

} // namespace kovastream
