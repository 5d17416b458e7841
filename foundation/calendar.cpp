#include "foundation/calendar.h"

#include "foundation/mutex.h"

namespace {

KovaMutex g_zoneMutex = {PTHREAD_MUTEX_INITIALIZER};

} // namespace

void KovaCalendarLocal(time_t tMoment, struct tm *pLocal)
{
    const KovaMutexLock lock(&g_zoneMutex, kRankLog);
    tzset();
    localtime_r(&tMoment, pLocal);
}

void KovaCalendarUtc(time_t tMoment, struct tm *pUtc)
{
    // The first call of either kind sets the zone up.
    const KovaMutexLock lock(&g_zoneMutex, kRankLog);
    gmtime_r(&tMoment, pUtc);
}
