#include "Bex/CTime.h"

#include "Platform/Clock.h"

namespace Bex {

namespace {

constexpr const char* DAYS[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char* MONTHS[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

} // namespace

CTime CTime::Now() { return CTime(Platform::NowSeconds()); }

CSimpleString CTime::MailDate() const
{
    const Platform::SLocalTime local = Platform::ToLocalTime(m_iSeconds);
    const int iZone = local.iUtcOffset / 3600 * 100 + local.iUtcOffset % 3600 / 60; // both parts carry the sign
    return CSimpleString::Formatted("%s, %d %s %04d %02d:%02d:%02d %+05d", DAYS[local.iDayOfWeek], local.iDay,
                                    MONTHS[local.iMonth - 1], local.iYear, local.iHour, local.iMinute, local.iSecond,
                                    iZone);
}

} // namespace Bex
