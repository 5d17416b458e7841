#pragma once

#include <ctime>

/// Dates of moments, safe to ask for from any thread. Both calls share the C
/// library's time zone, and with it one lock.

/// The local date and time as localtime() gives it, which follows a changed TZ;
/// localtime_r() alone need not.
void KovaCalendarLocal(time_t tMoment, struct tm *pLocal);

/// The date and time in UTC.
void KovaCalendarUtc(time_t tMoment, struct tm *pUtc);
