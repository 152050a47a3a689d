#include "Control/LoadTables.h"

#include "Common/Globals.h"
#include "Control/CControlError.h"
#include "Control/LoadConfiguration.h"
#include "Tobix/TableFiles.h"

namespace {

template <class TTable>
void Require(TTable& table, const Bex::CSimpleString& strFile)
{
    const Platform::SError error = LoadError(table, strFile);
    if (error.dwSysError != 0)
        throw CControlError(EExit::Wrong, std::string("cannot read ") + strFile.Text() + ": " + ErrorText(error));
}

} // namespace

void LoadUsers()
{
    const Bex::CSimpleString strSpool = Config().GetPath(Keys::SPOOL_DIR);
    if (!Users().ReadUsers(strSpool))
        throw CControlError(EExit::Wrong, std::string("cannot list the mailboxes in ") + strSpool.Text() + ": " +
                                              ErrorText(Platform::LastError()));
}

void LoadTables(const SOptions& options)
{
    LoadConfiguration(options);
    LoadUsers();
    const Bex::CSimpleString strDirectory = ConfigDirectory();
    Require(LocalDomains(), TableFiles::Domains(strDirectory));
    Require(Aliases(), TableFiles::Aliases());
    Aliases().PreresolveAliases();
    LoadError(BackupDomains(), TableFiles::BackupDomains(strDirectory)); // the others need not be there
    LoadError(Filters(), TableFiles::Filters(strDirectory));
    LoadError(SmartHosts(), TableFiles::SmartHosts(strDirectory));
    if (const Bex::CSimpleString strMasks = TableFiles::Masquerading(); !strMasks.IsEmpty())
        LoadError(Masquerading(), strMasks);
}
