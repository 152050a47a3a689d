#include "Common/AccountLock.h"

#include "Bex/TextFunctions.h"
#include "Common/Globals.h"

Bex::CMutex AccountLock(const Bex::CSimpleString& strPath)
{
    const Bex::CSimpleString strLockDirectory = Config().GetPath(Keys::LOCK_DIR);
    if (strLockDirectory.IsEmpty())
        return Bex::CMutex(Bex::AccountLockName(strPath));
    const Bex::CSimpleString strRoot = Bex::PathBelow(Config().GetPath(Keys::SPOOL_DIR), "");
    std::string_view name = strPath.View();
    if (name.starts_with(strRoot.View()))
        name.remove_prefix(strRoot.Length());
    return Bex::CMutex(Bex::AccountLockName(name), strLockDirectory);
}
