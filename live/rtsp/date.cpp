#include "live/rtsp/date.h"

#include <cstdio>

namespace {

constexpr int64_t kSecondsPerDay = 86400;
// The calendar repeats itself after 400 years. Its periods are counted from 1 March 2000, so that
// a leap day is the last day of a year, of four years and of a period.
constexpr int64_t kDaysPerPeriod = 146097;
constexpr int64_t kDaysTo2000March = 11017;
constexpr int32_t kDaysPerCentury = 36524;
constexpr int32_t kDaysPerFourYears = 1461;
constexpr int32_t kDaysPerYear = 365;

struct Day {
    int64_t nYear;
    int32_t nMonth; ///< 0: January
    int32_t nDay;   ///< from 1
};

/// nValue / nDivisor rounded down, and what is left, from 0 up to the divisor.
int64_t DivideDown(int64_t nValue, int64_t nDivisor, int32_t *pRest)
{
    int64_t nQuotient = nValue / nDivisor;
    int64_t nRest = nValue % nDivisor;
    if (nRest < 0) {
        nRest += nDivisor;
        --nQuotient;
    }
    *pRest = static_cast<int32_t>(nRest);
    return nQuotient;
}

/// nRest / nLength, but the last of nCount parts is longer than the others.
int32_t TakeParts(int32_t *pRest, int32_t nLength, int32_t nCount)
{
    int32_t nParts = *pRest / nLength;
    if (nParts == nCount)
        --nParts;
    *pRest -= nParts * nLength;
    return nParts;
}

Day DayOf(int64_t nDays)
{
    constexpr uint8_t kMonthDays[] = {31, 30, 31, 30, 31, 31, 30, 31, 30, 31, 31, 29};
    int32_t nRest = 0;
    const int64_t nPeriod = DivideDown(nDays - kDaysTo2000March, kDaysPerPeriod, &nRest);
    int32_t nYears = 100 * TakeParts(&nRest, kDaysPerCentury, 4);
    nYears += 4 * TakeParts(&nRest, kDaysPerFourYears, 25);
    nYears += TakeParts(&nRest, kDaysPerYear, 4);
    int32_t nMonth = 0;
    while (nRest >= kMonthDays[nMonth])
        nRest -= kMonthDays[nMonth++];
    Day day = {2000 + nPeriod * 400 + nYears, nMonth + 2, nRest + 1};
    if (day.nMonth >= 12) {
        day.nMonth -= 12;
        ++day.nYear;
    }
    return day;
}

} // namespace

void KovaDateWrite(int64_t nSeconds, char *szDate)
{
    // Three letters each; day 0 of 1970 was a Thursday.
    constexpr char kWeekDays[] = "ThuFriSatSunMonTueWed";
    constexpr char kMonths[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
    int32_t nSecond = 0;
    const int64_t nDays = DivideDown(nSeconds, kSecondsPerDay, &nSecond);
    int32_t nWeekDay = 0;
    DivideDown(nDays, 7, &nWeekDay);
    const Day day = DayOf(nDays);
    snprintf(szDate, kDateSize, "%.3s, %02d %.3s %04lld %02d:%02d:%02d GMT",
             kWeekDays + size_t{3} * static_cast<size_t>(nWeekDay), day.nDay,
             kMonths + size_t{3} * static_cast<size_t>(day.nMonth),
             static_cast<long long>(day.nYear), nSecond / 3600, nSecond / 60 % 60, nSecond % 60);
}
