#include "foundation/calendar.h"

#include "foundation/scope_guard.h"

#include <pthread.h>

namespace {

pthread_mutex_t g_zoneMutex = PTHREAD_MUTEX_INITIALIZER;

} // namespace

void KovaCalendarLocal(time_t tMoment, struct tm *pLocal)
{
    const KovaMutexLock lock(&g_zoneMutex);
    tzset();
    localtime_r(&tMoment, pLocal);
}

void KovaCalendarUtc(time_t tMoment, struct tm *pUtc)
{
    // The first call of either kind sets the zone up.
    const KovaMutexLock lock(&g_zoneMutex);
    gmtime_r(&tMoment, pUtc);
}
