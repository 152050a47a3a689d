#include "Tobix/CFileNames.h"

#include "Platform/Clock.h"

Bex::CSimpleString CFileNames::FilterCopy()
{
    const Platform::SLocalTime now = Platform::LocalNow();
    return Bex::CSimpleString::Formatted("%04d%02d%02d%02d%02d%02d%04d%04u.eml", now.iYear, now.iMonth, now.iDay,
                                         now.iHour, now.iMinute, now.iSecond, now.iMillisecond, m_dwCounter++);
}

Bex::CSimpleString CFileNames::RecipientCopy(Bex::CTime time, unsigned dwThreadId)
{
    const Platform::SLocalTime local = Platform::ToLocalTime(time.Seconds());
    return Bex::CSimpleString::Formatted("%04d%02d%02d%02d%02d%02d%05u%04u.eml", local.iYear, local.iMonth, local.iDay,
                                         local.iHour, local.iMinute, local.iSecond, dwThreadId, m_dwCounter++);
}
