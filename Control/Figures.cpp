#include "Control/Figures.h"

#include "Bex/CSimpleString.h"
#include "Platform/Clock.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <iterator>

namespace {

constexpr uint64_t KIBI = 1024;
constexpr double SHOWN_WITH_TENTHS_BELOW = 10;
constexpr int64_t MINUTE = 60;
constexpr int64_t HOUR = 60 * MINUTE;
constexpr int64_t DAY = 24 * HOUR;
constexpr int64_t WEEK = 7 * DAY;
constexpr int64_t LONGEST_SPAN = 100'000 * DAY;

std::string TwoParts(int64_t iFirst, const char* pszFirst, int64_t iSecond, const char* pszSecond)
{
    return std::to_string(iFirst) + pszFirst + " " + std::to_string(iSecond) + pszSecond;
}

} // namespace

std::string SizeText(uint64_t nBytes)
{
    static constexpr const char* UNITS[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (nBytes < KIBI)
        return std::to_string(nBytes) + " B";
    auto size = static_cast<double>(nBytes);
    size_t nUnit = 0;
    for (; size >= static_cast<double>(KIBI) && nUnit + 1 < std::size(UNITS); ++nUnit)
        size /= static_cast<double>(KIBI);
    const int iDigits = size < SHOWN_WITH_TENTHS_BELOW ? 1 : 0;
    return Bex::CSimpleString::Formatted("%.*f %s", iDigits, size, UNITS[nUnit]).Text();
}

std::string AgeText(int64_t iSeconds)
{
    iSeconds = std::max<int64_t>(iSeconds, 0);
    if (iSeconds < MINUTE)
        return std::to_string(iSeconds) + "s";
    if (iSeconds < HOUR)
        return TwoParts(iSeconds / MINUTE, "m", iSeconds % MINUTE, "s");
    if (iSeconds < DAY)
        return TwoParts(iSeconds / HOUR, "h", iSeconds % HOUR / MINUTE, "m");
    return TwoParts(iSeconds / DAY, "d", iSeconds % DAY / HOUR, "h");
}

std::string MomentText(int64_t iSeconds)
{
    const Platform::SLocalTime time = Platform::ToLocalTime(iSeconds);
    return Bex::CSimpleString::Formatted("%04d-%02d-%02d %02d:%02d:%02d", time.iYear, time.iMonth, time.iDay,
                                         time.iHour, time.iMinute, time.iSecond)
        .Text();
}

std::string InstantText(int64_t iSeconds)
{
    using namespace std::chrono;
    const sys_seconds instant{seconds(iSeconds)};
    const sys_days day = floor<days>(instant);
    const year_month_day date(day);
    const hh_mm_ss time(instant - day);
    return Bex::CSimpleString::Formatted(
               "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
               static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
               static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()))
        .Text();
}

std::optional<int64_t> SecondsIn(std::string_view span)
{
    static constexpr struct
    {
        std::string_view unit;
        int64_t iSeconds;
    } UNITS[] = {{"", 1}, {"s", 1}, {"m", MINUTE}, {"h", HOUR}, {"d", DAY}, {"w", WEEK}};
    int64_t iCount = 0;
    const char* const pEnd = span.data() + span.size();
    const auto [pUnit, error] = std::from_chars(span.data(), pEnd, iCount);
    const auto* const pKnown =
        std::ranges::find(UNITS, std::string_view(pUnit, pEnd), [](const auto& known) { return known.unit; });
    if (error != std::errc() || iCount < 0 || pKnown == std::end(UNITS) || iCount > LONGEST_SPAN / pKnown->iSeconds)
        return std::nullopt;
    return iCount * pKnown->iSeconds;
}
