#include "Bex/CSysLog.h"

#include "Bex/TextFunctions.h"
#include "Platform/CDatagramSocket.h"
#include "Platform/CImmortal.h"
#include "Platform/CNativeThread.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string_view>

namespace Bex {

namespace {

constexpr const char* LOCAL_HOST = "127.0.0.1";
constexpr uint16_t DEFAULT_PORT = 514;
constexpr size_t DATAGRAM_SIZE = 512;

struct SFacility
{
    std::string_view name;
    int iCode;
};

constexpr SFacility FACILITIES[] = {
    {"kern", 0},    {"user", 1},    {"mail", 2},    {"daemon", 3},    {"syslog", 5},  {"lpr", 6},
    {"news", 7},    {"uucp", 8},    {"cron", 9},    {"authpriv", 10}, {"local0", 16}, {"local1", 17},
    {"local2", 18}, {"local3", 19}, {"local4", 20}, {"local5", 21},   {"local6", 22}, {"local7", 23},
};
constexpr int FACILITY_MAIL = 2 * 8;

const SFacility* Find(std::string_view name)
{
    const auto* const pFacility = std::ranges::find_if(
        FACILITIES, [name](const SFacility& facility) { return EqualNoCase(facility.name, name); });
    return pFacility != std::end(FACILITIES) ? pFacility : nullptr;
}

int FacilityOf(std::string_view name)
{
    const SFacility* const pFacility = Find(name);
    return pFacility != nullptr ? pFacility->iCode * 8 : FACILITY_MAIL;
}

/// One for all, from the first line on: when a restart changes the destination there may be no other to be had.
const Platform::CDatagramSocket& Socket()
{
    static Platform::CImmortal<Platform::CDatagramSocket> socket;
    return *socket;
}

} // namespace

bool CSysLog::IsFacility(std::string_view name) { return Find(name) != nullptr; }

CSysLog::CSysLog(const CSimpleString& strFacility, const CSimpleString& strHost, uint16_t wPort)
    : m_iFacility(FacilityOf(strFacility)), m_strHost(strHost.IsEmpty() ? CSimpleString(LOCAL_HOST) : strHost),
      m_wPort(wPort)
{}

CSysLog::CSysLog(int iFacilityTimes8) : m_iFacility(iFacilityTimes8), m_strHost(LOCAL_HOST), m_wPort(DEFAULT_PORT) {}

void CSysLog::Write(int iLevel, const char* pszText, unsigned)
{
    char datagram[DATAGRAM_SIZE + 1];
    const int iLength = std::snprintf(datagram, sizeof datagram, "<%d> [%04X] %s: %s", m_iFacility + iLevel,
                                      Platform::CurrentThreadId(), m_strIdent.Text(), pszText);
    if (iLength < 0)
        return;
    Socket().Send(m_strHost.Text(), m_wPort, datagram, std::min(static_cast<size_t>(iLength), DATAGRAM_SIZE));
}

} // namespace Bex
