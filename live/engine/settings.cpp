#include "live/engine/live.h"

#include <arpa/inet.h>

#include <cstring>

namespace {

uint32_t Or(uint32_t nValue, uint32_t nDefault)
{
    return nValue != 0 ? nValue : nDefault;
}

/// Of milliseconds, in microseconds.
uint64_t Time(uint32_t nValue, uint32_t nDefault)
{
    return uint64_t{Or(nValue, nDefault)} * 1000;
}

int32_t Check(const KovaLiveConfig &config, const KovaLiveSettings &settings)
{
    const bool bPacket = settings.nMaxPacket >= 200 && settings.nMaxPacket <= 65000;
    const bool bThreads = settings.nThreads <= kLiveMaxLoops;
    // A pair has to fit.
    const bool bPorts = config.udp_first == 0 ? config.udp_last == 0
                                              : config.udp_last > ((config.udp_first + 1U) & ~1U);
    return bPacket && bThreads && bPorts ? KOVA_LIVE_OK : KOVA_LIVE_ERROR_ARGUMENT;
}

} // namespace

bool KovaLiveRecordCopy(void *pCopy, uint32_t nOurs, const void *pTheirs, uint32_t nLeast)
{
    uint32_t nTheirs = 0;
    if (pTheirs == nullptr)
        return false;
    memcpy(&nTheirs, pTheirs, sizeof(nTheirs));
    if (nTheirs < nLeast)
        return false;
    memset(pCopy, 0, nOurs);
    memcpy(pCopy, pTheirs, nTheirs < nOurs ? nTheirs : nOurs);
    return true;
}

int32_t KovaLiveSettingsFrom(const KovaLiveConfig *pConfig, KovaLiveSettings *pSettings)
{
    KovaLiveConfig config = {};
    if (pConfig != nullptr && !KovaLiveRecordCopy(&config, sizeof(config), pConfig, sizeof(config)))
        return KOVA_LIVE_ERROR_ARGUMENT;
    KovaLiveSettings settings = {};
    in_addr address = {};
    if (config.address != nullptr && config.address[0] != '\0' &&
        inet_pton(AF_INET, config.address, &address) != 1)
        return KOVA_LIVE_ERROR_ADDRESS;
    settings.nAddress = address.s_addr;
    settings.nPort = config.port;
    settings.nUdpFirst = config.udp_first;
    settings.nUdpLast = config.udp_last;
    settings.nMaxPacket = config.max_packet != 0 ? config.max_packet : 1400;
    settings.nThreads = Or(config.threads, 1);
    settings.nMaxConnections = Or(config.max_connections, 1024);
    settings.nMaxPerAddress = config.max_connections_per_address;
    settings.nMaxSessions = Or(config.max_sessions, 1024);
    settings.nRequestTime = Time(config.request_ms, 10000);
    settings.nIdleTime = Time(config.idle_ms, 120000);
    settings.nSessionTime = Time(config.session_ms, 60000);
    settings.nDelay = Time(config.delay_ms, 0);
    settings.nPlayerMaxTime = Time(config.player_max_ms, 2000);
    settings.nPlayerMaxBytes = Or(config.player_max_bytes, 2 * 1024 * 1024);
    settings.nPlayerStallTime = Time(config.player_stall_ms, 10000);
    settings.nLogLevel = config.log_level;
    settings.pfnLog = config.on_log;
    settings.pfnEvent = config.on_event;
    settings.pContext = config.context;
    const int32_t nResult = Check(config, settings);
    if (nResult == KOVA_LIVE_OK)
        *pSettings = settings;
    return nResult;
}
