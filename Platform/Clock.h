#pragma once

#include <cstdint>

/// Time as the operating system keeps it. All functions may be called on any thread.
namespace Platform {

struct SLocalTime
{
    int iYear;        ///< four digits
    int iMonth;       ///< 1 to 12
    int iDay;         ///< 1 to 31
    int iHour;        ///< 0 to 23
    int iMinute;      ///< 0 to 59
    int iSecond;      ///< 0 to 60
    int iMillisecond; ///< 0 to 999
    int iDayOfWeek;   ///< 0 is Sunday
    int iUtcOffset;   ///< seconds east of UTC, daylight saving included
};

uint64_t TickCount();                     ///< milliseconds since an arbitrary start; never goes back
uint64_t TickMicros();                    ///< the same in microseconds
uint64_t ThreadMicros();                  ///< microseconds that the calling thread has had of a processor
int64_t NowSeconds();                     ///< seconds since 1970-01-01 UTC
int64_t NowMicros();                      ///< the same in microseconds
SLocalTime LocalNow();                    ///< the wall clock, with milliseconds
SLocalTime ToLocalTime(int64_t iSeconds); ///< of seconds since 1970-01-01 UTC; milliseconds 0
void SleepMillis(unsigned dwMillis);

} // namespace Platform
