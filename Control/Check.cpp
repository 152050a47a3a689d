#include "Control/Check.h"

#include "Common/Globals.h"
#include "Control/CControlError.h"
#include "Control/CheckSteps.h"
#include "Control/LoadConfiguration.h"
#include "Platform/CActingUser.h"

namespace {

constexpr char SERVICE_USER[] = "tobix";

/// Answers whom this process then acts as; empty: as whoever started it.
std::string ActAs(std::string strUser, Platform::CActingUser& acting)
{
    if (strUser.empty() && Platform::IsAdministrator() && Platform::UserExists(SERVICE_USER))
        strUser = SERVICE_USER;
    if (!strUser.empty() && !acting.Become(strUser.c_str()))
        throw CControlError(EExit::Wrong,
                            "cannot act as the user " + strUser + ": " +
                                (Platform::UserExists(strUser.c_str()) ? ErrorText(Platform::LastError())
                                                                       : std::string("there is none of that name")));
    return strUser;
}

void RunSteps(const Bex::CSimpleString& strPath, CFindings& findings)
{
    if (!CheckConfiguration(strPath, findings))
        return;
    CheckDirectories(strPath, findings);
    CheckAccounts(findings);
    CheckDomains(findings);
    CheckAliases(findings);
    CheckSmartHosts(findings);
    CheckLists(findings);
}

} // namespace

int Check(const SOptions& options, const std::string& strUser)
{
    const CTerminal terminal(options);
    Platform::CActingUser acting;
    const Bex::CSimpleString strPath = FindConfiguration(options);
    const std::string strActing = ActAs(strUser, acting);
    CFindings findings;
    RunSteps(strPath, findings);
    findings.SortByLine();
    if (terminal.IsJson()) {
        terminal.Json({{"configuration", strPath.Text()},
                       {"user", strActing},
                       {"findings", findings.Json()},
                       {"users", Users().UserCount()},
                       {"domains", LocalDomains().Count()},
                       {"aliases", Aliases().Count()},
                       {"smarthosts", SmartHosts().Count()},
                       {"filters", Filters().Count()}});
        return static_cast<int>(findings.IsEmpty() ? EExit::Done : EExit::Wrong);
    }
    findings.Write(terminal);
    const std::string strAs = strActing.empty() ? "" : " (as the user " + strActing + ")";
    if (!findings.IsEmpty()) {
        terminal.Line(findings.Summary() + " in " + strPath.Text() + strAs, EStyle::Strong);
        return static_cast<int>(EExit::Wrong);
    }
    terminal.Line(std::string("nothing is wrong with ") + strPath.Text() + strAs, EStyle::Good);
    terminal.Line("users " + std::to_string(Users().UserCount()) + ", local domains " +
                  std::to_string(LocalDomains().Count()) + ", aliases " + std::to_string(Aliases().Count()) +
                  ", smart host keys " + std::to_string(SmartHosts().Count()) + ", filters " +
                  std::to_string(Filters().Count()));
    return static_cast<int>(EExit::Done);
}
