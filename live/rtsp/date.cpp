#include "live/rtsp/date.h"

#include "foundation/divide.h"

#include <cstdio>

namespace {

constexpr uint32_t kSecondsPerDay = 86400;
// The calendar repeats itself after 400 years. Its periods are counted from 1 March 2000, so that
// a leap day is the last day of a year, of four years and of a period.
constexpr uint32_t kDaysPerPeriod = 146097;
constexpr int64_t kDaysTo2000March = 11017;
constexpr int32_t kDaysPerCentury = 36524;
constexpr int32_t kDaysPerFourYears = 1461;
constexpr int32_t kDaysPerYear = 365;

struct Day {
    int64_t nYear;
    int32_t nMonth;   ///< 0: January
    int32_t nDay;     ///< from 1
    int32_t nWeekDay; ///< 0: Wednesday
};

/// How many parts of nLength are in a rest, which keeps what is behind them. There are nCount
/// parts, and the last may be a day longer.
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
    static constexpr uint8_t kMonthDays[] = {31, 30, 31, 30, 31, 31, 30, 31, 30, 31, 31, 29};
    uint32_t nDayOfPeriod = 0;
    const int64_t nPeriod = KovaDivideDown(nDays - kDaysTo2000March, kDaysPerPeriod, &nDayOfPeriod);
    int32_t nRest = static_cast<int32_t>(nDayOfPeriod);
    // A period is a number of whole weeks; 1 March 2000 was a Wednesday.
    const int32_t nWeekDay = nRest % 7;
    int32_t nYears = 100 * TakeParts(&nRest, kDaysPerCentury, 4);
    nYears += 4 * TakeParts(&nRest, kDaysPerFourYears, 25);
    nYears += TakeParts(&nRest, kDaysPerYear, 4);
    int32_t nMonth = 0;
    while (nRest >= kMonthDays[nMonth])
        nRest -= kMonthDays[nMonth++];
    Day day = {2000 + nPeriod * 400 + nYears, nMonth + 2, nRest + 1, nWeekDay};
    if (day.nMonth >= 12) {
        day.nMonth -= 12;
        ++day.nYear;
    }
    return day;
}

} // namespace

void KovaDateWrite(int64_t nSeconds, char *szDate)
{
    // Three letters each.
    static constexpr char kWeekDays[] = "WedThuFriSatSunMonTue";
    static constexpr char kMonths[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
    uint32_t nOfDay = 0;
    const int64_t nDays = KovaDivideDown(nSeconds, kSecondsPerDay, &nOfDay);
    const Day day = DayOf(nDays);
    snprintf(szDate, kDateSize, "%.3s, %02d %.3s %04lld %02u:%02u:%02u GMT",
             kWeekDays + size_t{3} * static_cast<size_t>(day.nWeekDay), day.nDay,
             kMonths + size_t{3} * static_cast<size_t>(day.nMonth),
             static_cast<long long>(day.nYear), nOfDay / 3600, nOfDay / 60 % 60, nOfDay % 60);
}
