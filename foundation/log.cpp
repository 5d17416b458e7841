#include "foundation/log.h"

#include "foundation/calendar.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>

std::atomic<uint32_t> Rtsp_DebugLevel{kLogOverflow};

namespace {

constexpr size_t kLineSize = 8192;

size_t WriteStamp(char *szLine, size_t nCapacity)
{
    const time_t tNow = time(nullptr);
    struct tm local = {};
    KovaCalendarLocal(tNow, &local);
    const int nLength =
        snprintf(szLine, nCapacity, "%04d/%02d/%02d %02d:%02d:%02d ", local.tm_year + 1900,
                 local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return nLength > 0 ? static_cast<size_t>(nLength) : 0;
}

/// The line is its own print format, so far as that is harmless: a doubled
/// percent sign is one. Text from the network must never be more of a format.
void CollapsePercents(char *szLine)
{
    char *szOut = szLine;
    for (const char *szIn = szLine; *szIn != '\0'; szIn++) {
        if (szIn[0] == '%' && szIn[1] == '%')
            szIn++;
        *szOut++ = *szIn;
    }
    *szOut = '\0';
}

} // namespace

void RTSP_SetLogLevel(uint32_t nLevel)
{
    Rtsp_DebugLevel.store(nLevel, std::memory_order_relaxed);
}

void TimeLog(uint32_t nLevel, const char *szFormat, ...)
{
    if (nLevel > Rtsp_DebugLevel.load(std::memory_order_relaxed) || szFormat == nullptr)
        return;
    char szLine[kLineSize];
    const size_t nStamp = WriteStamp(szLine, sizeof(szLine));
    va_list arguments;
    va_start(arguments, szFormat);
    vsnprintf(szLine + nStamp, sizeof(szLine) - nStamp, szFormat, arguments);
    va_end(arguments);
    CollapsePercents(szLine);
    fputs(szLine, stdout);
}
