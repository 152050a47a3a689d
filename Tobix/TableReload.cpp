#include "Tobix/TableReload.h"

#include "Bex/CFileException.h"
#include "Bex/Log.h"
#include "Common/Globals.h"
#include "Tobix/CInterceptor.h"

namespace {

constexpr char SOURCE_FILE[] = "Tobix/TableReload";

bool HasChanged(const Bex::CStorableStringHash& table) { return table.HasChanged(); }
bool HasChanged(const Bex::CStorableStringList& table) { return table.HasFileChanged(); }

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
void ReloadIfChanged(TTable& table)
{
    if (HasChanged(table))
        Reload(table, table.FileName());
}

void ReloadAliases()
{
    CAliases fresh;
    const bool bLoaded = Reload(fresh, Aliases().FileName());
    if (!bLoaded) {
        Bex::LogError(Bex::MainLog(), "could not reload 'aliases'-file");
        Aliases().Saw(fresh); // it is not tried again before it changes
    }
    Bex::LogInfo(Bex::MainLog(), "preresolving aliases...");
    (bLoaded ? fresh : Aliases()).PreresolveAliases();
    if (bLoaded)
        Aliases().TakeOver(fresh);
}

void ReloadRouting()
{
    if (!Reload(LocalDomains(), LocalDomains().FileName()))
        Bex::LogError(Bex::MainLog(), "could not reload 'domains'-file");
    if (!Users().BuildUserList())
        Bex::LogError(Bex::MainLog(), "could not reload user-list");
    ReloadAliases();
}

} // namespace

void ReloadChangedTables(bool bMailboxTreeChanged, CInterceptor* pInterceptor)
{
    if (HasChanged(LocalDomains()) || bMailboxTreeChanged || HasChanged(Aliases()))
        ReloadRouting();
    ReloadIfChanged(BackupDomains());
    if (HasChanged(Filters()) && !Reload(Filters(), Filters().FileName()))
        Bex::LogError(Bex::MainLog(), "could not reload 'filters'-file");
    ReloadIfChanged(SmartHosts());
    ReloadIfChanged(Masquerading());
    if (pInterceptor != nullptr)
        pInterceptor->ReloadIfChanged();
}
