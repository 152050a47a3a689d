#include "Platform/linux/crash/CrashLog.h"

#include "Platform/CDatagramSocket.h"
#include "Platform/Clock.h"
#include "Platform/ConsoleScreen.h"

#include <algorithm>
#include <cstdio>

namespace Platform {

namespace {

constexpr int LEVEL_ERROR = 3;
constexpr size_t DATAGRAM_SIZE = 512;
constexpr size_t CONSOLE_SIZE = 1200;

void WriteToConsole(unsigned dwThread, const char* pszText)
{
    const SLocalTime now = LocalNow();
    char line[CONSOLE_SIZE];
    const int iLength = std::snprintf(line, CONSOLE_SIZE, "%02d.%02d.%04d %02d:%02d:%02d [%04X] error: %s\n", now.iDay,
                                      now.iMonth, now.iYear, now.iHour, now.iMinute, now.iSecond, dwThread, pszText);
    const size_t nLength = std::min(static_cast<size_t>(std::max(iLength, 0)), CONSOLE_SIZE - 1);
    WriteConsole(true, {line, nLength}, EColour::BrightRed, HasConsole(true));
}

void SendToSyslog(const SCrashLog& log, unsigned dwThread, const char* pszText)
{
    char datagram[DATAGRAM_SIZE + 1];
    const int iLength = std::snprintf(datagram, sizeof(datagram), "<%d> [%04X] %s: %s",
                                      log.iFacilityTimes8 + LEVEL_ERROR, dwThread, log.szIdent, pszText);
    const size_t nLength = std::min(static_cast<size_t>(std::max(iLength, 0)), DATAGRAM_SIZE);
    SendDatagram(log.szHost, log.wPort, datagram, nLength);
}

} // namespace

void WriteCrashLog(const SCrashLog& log, pid_t iThread, const char* pszText)
{
    const auto dwThread = static_cast<unsigned>(iThread);
    if (log.kind == ECrashLog::Console)
        WriteToConsole(dwThread, pszText);
    else if (log.kind == ECrashLog::Syslog)
        SendToSyslog(log, dwThread, pszText);
}

} // namespace Platform
