#include "live/rtsp/date.h"

#include <cstddef>
#include <cstdio>
#include <ctime>

void KovaDateWrite(int64_t nSeconds, char *szDate)
{
    // Three letters each: strftime(3) would use the locale's.
    static constexpr char kWeekDays[] = "SunMonTueWedThuFriSat";
    static constexpr char kMonths[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const time_t tMoment = static_cast<time_t>(nSeconds);
    struct tm utc = {};
    gmtime_r(&tMoment, &utc);
    snprintf(szDate, kDateSize, "%.3s, %02d %.3s %04d %02d:%02d:%02d GMT",
             &kWeekDays[size_t{3} * static_cast<size_t>(utc.tm_wday)], utc.tm_mday,
             &kMonths[size_t{3} * static_cast<size_t>(utc.tm_mon)], utc.tm_year + 1900, utc.tm_hour,
             utc.tm_min, utc.tm_sec);
}
