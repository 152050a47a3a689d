#include "Tobix/LogSetUp.h"

#include "Bex/CConsoleLog.h"
#include "Bex/CSysLog.h"
#include "Bex/Log.h"
#include "Common/Globals.h"
#include "Platform/CrashHandler.h"

#include <memory>

namespace LogSetUp {

namespace {

void SetMainLog(std::shared_ptr<Bex::CSysLog> pLog)
{
    Platform::SetCrashLog(Platform::ECrashLog::Syslog, pLog->Host().Text(), pLog->Port(), pLog->Facility(), "Tobix");
    Bex::MainLog().Replace(std::move(pLog));
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
    Bex::TrafficLog().Replace(std::make_shared<Bex::CSysLog>(Bex::CSysLog::FACILITY_LOCAL2));
}

void ToConfiguredSyslog()
{
    const Bex::CConfigFile& config = Config();
    SetMainLog(MakeSysLog(config.GetString(Keys::LOG_FACILITY), config.GetString(Keys::LOG_HOST),
                          config.GetInt(Keys::LOG_PORT)));
    Bex::TrafficLog().Replace(MakeSysLog(config.GetString(Keys::TRAFFIC_LOG_FACILITY),
                                         config.GetString(Keys::TRAFFIC_LOG_HOST),
                                         config.GetInt(Keys::TRAFFIC_LOG_PORT)));
}

} // namespace LogSetUp
