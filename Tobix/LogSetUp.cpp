#include "Tobix/LogSetUp.h"

#include "Bex/CConsoleLog.h"
#include "Bex/CJournalLog.h"
#include "Bex/CSysLog.h"
#include "Bex/Log.h"
#include "Common/Globals.h"
#include "Platform/CJournal.h"
#include "Platform/CrashHandler.h"

#include <memory>

namespace LogSetUp {

namespace {

/// With a copy to the journal, if that is where the service manager's user looks.
std::shared_ptr<Bex::ILogDestination> Journaled(std::shared_ptr<Bex::CSysLog> pLog)
{
    static const auto s_pJournal = Platform::CJournal::IsExpected() ? std::make_shared<Platform::CJournal>() : nullptr;
    if (!s_pJournal)
        return pLog;
    const int iFacility = pLog->Facility();
    return std::make_shared<Bex::CJournalLog>(std::move(pLog), s_pJournal, iFacility);
}

void SetMainLog(std::shared_ptr<Bex::CSysLog> pLog)
{
    Platform::SetCrashLog(Platform::ECrashLog::Syslog, pLog->Host().Text(), pLog->Port(), pLog->Facility(), "Tobix");
    Bex::MainLog().Replace(Journaled(std::move(pLog)));
}

std::shared_ptr<Bex::CSysLog> MakeSysLog(const Bex::CSimpleString& strFacility, const Bex::CSimpleString& strHost,
                                         int iPort)
{
    return std::make_shared<Bex::CSysLog>(strFacility, strHost, static_cast<uint16_t>(iPort));
}

} // namespace

void ToConsole()
{
    Platform::SetCrashLog(Platform::ECrashLog::Console);
    Bex::MainLog().Replace(std::make_shared<Bex::CConsoleLog>());
    Bex::TrafficLog().Replace(std::make_shared<Bex::CConsoleLog>());
}

void ToLocalSyslog()
{
    SetMainLog(std::make_shared<Bex::CSysLog>(Bex::CSysLog::FACILITY_DAEMON));
    Bex::TrafficLog().Replace(Journaled(std::make_shared<Bex::CSysLog>(Bex::CSysLog::FACILITY_LOCAL2)));
}

void ToConfiguredSyslog()
{
    const Bex::CConfigFile& config = Config();
    SetMainLog(MakeSysLog(config.GetString(Keys::LOG_FACILITY), config.GetString(Keys::LOG_HOST),
                          config.GetInt(Keys::LOG_PORT)));
    Bex::TrafficLog().Replace(
        Journaled(MakeSysLog(config.GetString(Keys::TRAFFIC_LOG_FACILITY), config.GetString(Keys::TRAFFIC_LOG_HOST),
                             config.GetInt(Keys::TRAFFIC_LOG_PORT))));
}

} // namespace LogSetUp
