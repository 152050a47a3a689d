#pragma once

#include "Bex/CFileException.h"
#include "Bex/CSimpleString.h"
#include "Control/SOptions.h"

/// Finds the configuration as the daemon does, and names its directory in this process's environment for everything
/// that asks ConfigDirectory: MAILCONFIGDIR as it is, else the directory of the file named by -c, else /etc/tobix.
/// Answers the path of the configuration's file, and makes its directory the working directory, as the daemon does,
/// since paths in it may be relative. Once, before other threads are there. CControlError when there is no such
/// directory.
Bex::CSimpleString FindConfiguration(const SOptions& options);

/// The same, and reads it into Config. CControlError when it cannot be read.
void LoadConfiguration(const SOptions& options);

/// Loads a table; why it could not be loaded.
template <class TTable>
Platform::SError LoadError(TTable& table, const Bex::CSimpleString& strPath)
{
    try {
        Platform::SetLastError({});
        return table.Load(strPath) ? Platform::SError() : Platform::LastError();
    } catch (const Bex::CFileException& exception) {
        return exception.Error();
    }
}
