#include "Tobix/TableReload.h"

#include "Bex/CFileException.h"
#include "Bex/CService.h"
#include "Bex/Log.h"
#include "Common/Globals.h"
#include "Tobix/CInterceptor.h"

namespace {

constexpr char SOURCE_FILE[] = "Tobix/TableReload";

/// False when it failed or there is no file to load from.
template <class TTable>
bool Reload(TTable& table, const Bex::CSimpleString& strFile)
{
    if (strFile.IsEmpty())
        return false;
    try {
        return table.Load(strFile);
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
        return false;
    }
}

template <class TTable>
bool Reload(TTable& table)
{
    return Reload(table, table.FileName());
}

/// True also when nothing has changed.
template <class TTable>
bool ReloadIfChanged(TTable& table, const char* pszFile)
{
    if (!table.HasFileChanged() || Reload(table))
        return true;
    Bex::LogError(Bex::MainLog(), "could not reload '%s'-file", pszFile);
    return false;
}

bool ServiceIsStopping()
{
    const Bex::CService* const pService = Bex::CService::Instance();
    return pService != nullptr && pService->StopEvent().IsSet();
}

bool ReloadAliases()
{
    CAliases fresh;
    const bool bLoaded = Reload(fresh, Aliases().FileName());
    if (!bLoaded) {
        Bex::LogError(Bex::MainLog(), "could not reload 'aliases'-file");
        Aliases().Saw(fresh);
    }
    Bex::LogInfo(Bex::MainLog(), "preresolving aliases...");
    const bool bResolved = (bLoaded ? fresh : Aliases()).PreresolveAliases(ServiceIsStopping);
    if (bLoaded && bResolved)
        Aliases().TakeOver(fresh);
    return bLoaded;
}

bool ReloadRouting()
{
    const bool bDomains = Reload(LocalDomains());
    if (!bDomains)
        Bex::LogError(Bex::MainLog(), "could not reload 'domains'-file");
    const bool bUsers = Users().BuildUserList();
    if (!bUsers)
        Bex::LogError(Bex::MainLog(), "could not reload user-list");
    return ReloadAliases() && bDomains && bUsers;
}

} // namespace

bool ReloadChangedTables(bool bMailboxTreeChanged, CInterceptor* pInterceptor)
{
    bool bAll = true;
    if (LocalDomains().HasFileChanged() || bMailboxTreeChanged || !Users().IsListed() || Aliases().HasFileChanged())
        bAll = ReloadRouting();
    bAll &= ReloadIfChanged(BackupDomains(), "backupdomains");
    bAll &= ReloadIfChanged(Filters(), "filters");
    bAll &= ReloadIfChanged(SmartHosts(), "smarthosts");
    bAll &= ReloadIfChanged(Masquerading(), "masquerading");
    return (pInterceptor == nullptr || pInterceptor->ReloadIfChanged()) && bAll;
}
