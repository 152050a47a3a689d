#include "Platform/Clock.h"

#include "Platform/CAdvancedClock.h"

#include <atomic>
#include <cerrno>
#include <ctime>

namespace Platform {

namespace {

std::atomic<uint64_t> s_ui64Ahead = 0; ///< milliseconds

SLocalTime BreakDown(time_t tSeconds, int iMillisecond)
{
    tm parts{};
    if (localtime_r(&tSeconds, &parts) == nullptr)
        parts = {}; // a year beyond int: nothing better to tell
    return {.iYear = parts.tm_year + 1900,
            .iMonth = parts.tm_mon + 1,
            .iDay = parts.tm_mday,
            .iHour = parts.tm_hour,
            .iMinute = parts.tm_min,
            .iSecond = parts.tm_sec,
            .iMillisecond = iMillisecond,
            .iDayOfWeek = parts.tm_wday,
            .iUtcOffset = static_cast<int>(parts.tm_gmtoff)};
}

} // namespace

uint64_t TickCount() { return TickMicros() / 1000; }

uint64_t TickMicros()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1000 +
           1000 * s_ui64Ahead.load(std::memory_order_relaxed);
}

CAdvancedClock::~CAdvancedClock() { s_ui64Ahead = 0; }

void CAdvancedClock::Advance(uint64_t ui64Millis) { s_ui64Ahead += ui64Millis; }

uint64_t ThreadMicros()
{
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<uint64_t>(used.tv_sec) * 1'000'000 + static_cast<uint64_t>(used.tv_nsec) / 1000;
}

int64_t NowSeconds() { return NowMicros() / 1'000'000; }

int64_t NowMicros()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now); // time() lags behind it by up to a timer tick
    return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

SLocalTime LocalNow()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return BreakDown(now.tv_sec, static_cast<int>(now.tv_nsec / 1'000'000));
}

SLocalTime ToLocalTime(int64_t iSeconds) { return BreakDown(iSeconds, 0); }

void SleepMillis(unsigned dwMillis)
{
    timespec until{};
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += dwMillis / 1000;
    until.tv_nsec += static_cast<long>(dwMillis % 1000) * 1'000'000;
    if (until.tv_nsec >= 1'000'000'000) {
        until.tv_nsec -= 1'000'000'000;
        ++until.tv_sec;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

} // namespace Platform
