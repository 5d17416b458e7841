#include "player_lines.h"

#include <ctime>

namespace kovastream {

namespace {

std::string NameOf(const KovaLiveEvent &event)
{
    return std::string(event.address) + ":" + std::to_string(event.port);
}

std::string Counted(uint32_t players)
{
    return "; " + std::to_string(players) + (players == 1 ? " player" : " players");
}

const char *WayOut(uint32_t reason)
{
    switch (reason) {
    case KOVA_LIVE_WENT_TEARDOWN:
    case KOVA_LIVE_WENT_BYE:
        return "has left";
    case KOVA_LIVE_WENT_CONNECTION:
        return "has closed its connection";
    case KOVA_LIVE_WENT_SILENCE:
        return "was silent for too long";
    case KOVA_LIVE_WENT_SLOW:
        return "took nothing for too long";
    default:
        return "was let go";
    }
}

const char *WordFor(int32_t level)
{
    switch (level) {
    case KOVA_LIVE_LOG_ERROR:
        return "error: ";
    case KOVA_LIVE_LOG_WARNING:
        return "warning: ";
    default:
        return "";
    }
}

} // namespace

std::string LineOf(const KovaLiveEvent &event, const std::string &uri, bool visits)
{
    const std::string player = uri + ": player " + NameOf(event) + " ";
    switch (event.type) {
    case KOVA_LIVE_EVENT_PLAYER_CAME:
        if (!visits)
            return "";
        return player + "has come, by " + (event.interleaved != 0 ? "TCP" : "UDP") +
               Counted(event.players);
    case KOVA_LIVE_EVENT_PLAYER_WENT:
        if (!visits && event.reason != KOVA_LIVE_WENT_SLOW)
            return "";
        return player + WayOut(event.reason) + Counted(event.players);
    case KOVA_LIVE_EVENT_OVERFLOW:
        return player + "takes too little: it misses what comes until the next key frame";
    default:
        return "";
    }
}

std::string Stamped(int32_t level, const std::string &text)
{
    const time_t now = time(nullptr);
    tm local = {};
    localtime_r(&now, &local);
    char stamp[32];
    strftime(stamp, sizeof(stamp), "%Y/%m/%d %H:%M:%S ", &local);
    return stamp + std::string(WordFor(level)) + text;
}

} // namespace kovastream
