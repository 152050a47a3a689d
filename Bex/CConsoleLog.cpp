#include "Bex/CConsoleLog.h"

#include "Platform/CNativeThread.h"
#include "Platform/Clock.h"
#include "Platform/ConsoleScreen.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace Bex {

namespace {

constexpr int LEVEL_ERROR = 3;
constexpr int LEVEL_WARNING = 4;
constexpr int LEVEL_NOTICE = 5;
constexpr const char* LEVEL_NAMES[] = {"emergency", "alert", "critical", "error", "warning", "notice", "info", "debug"};
constexpr int LAST_LEVEL = static_cast<int>(std::size(LEVEL_NAMES)) - 1;
constexpr size_t LINE_SIZE = 1200; // a log text of 1023 characters and what stands in front of it

Platform::EColour ColourOf(int iLevel)
{
    if (iLevel <= LEVEL_ERROR)
        return Platform::EColour::BrightRed;
    if (iLevel == LEVEL_WARNING)
        return Platform::EColour::Yellow;
    return iLevel == LEVEL_NOTICE ? Platform::EColour::BrightGreen : Platform::EColour::Grey;
}

} // namespace

CConsoleLog::CConsoleLog() : m_bErrorConsole(Platform::HasConsole(true)), m_bOutputConsole(Platform::HasConsole(false))
{}

void CConsoleLog::Write(int iLevel, const char* pszText, unsigned)
{
    const int iKnownLevel = std::clamp(iLevel, 0, LAST_LEVEL);
    const bool bErrorStream = iKnownLevel < LEVEL_WARNING;
    const CScopedLock lock(m_lock);
    const Platform::SLocalTime now = Platform::LocalNow();
    char line[LINE_SIZE];
    const int iLength = std::snprintf(line, LINE_SIZE, "%02d.%02d.%04d %02d:%02d:%02d [%04X] %s: %s\n", now.iDay,
                                      now.iMonth, now.iYear, now.iHour, now.iMinute, now.iSecond,
                                      Platform::CurrentThreadId(), LEVEL_NAMES[iKnownLevel], pszText);
    if (iLength < 0)
        return;
    const size_t nLength = std::min(static_cast<size_t>(iLength), LINE_SIZE - 1);
    line[nLength - 1] = '\n'; // of a line that was cut, too
    Platform::WriteConsole(bErrorStream, {line, nLength}, ColourOf(iKnownLevel),
                           bErrorStream ? m_bErrorConsole : m_bOutputConsole);
}

} // namespace Bex
