#include "Tobix/TableReload.h"

#include "Bex/CFileException.h"
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

template <class TTable>
void ReloadIfChanged(TTable& table)
{
    if (table.HasFileChanged())
        Reload(table);
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
    if (!Reload(LocalDomains()))
        Bex::LogError(Bex::MainLog(), "could not reload 'domains'-file");
    if (!Users().BuildUserList())
        Bex::LogError(Bex::MainLog(), "could not reload user-list");
    ReloadAliases();
}

} // namespace

void ReloadChangedTables(bool bMailboxTreeChanged, CInterceptor* pInterceptor)
{
    if (LocalDomains().HasFileChanged() || bMailboxTreeChanged || Aliases().HasFileChanged())
        ReloadRouting();
    ReloadIfChanged(BackupDomains());
    if (Filters().HasFileChanged() && !Reload(Filters()))
        Bex::LogError(Bex::MainLog(), "could not reload 'filters'-file");
    ReloadIfChanged(SmartHosts());
    ReloadIfChanged(Masquerading());
    if (pInterceptor != nullptr)
        pInterceptor->ReloadIfChanged();
}
