#include "Tobix/TableFiles.h"

#include "Bex/TextFunctions.h"
#include "Common/Globals.h"

namespace TableFiles {

Bex::CSimpleString Domains(std::string_view directory) { return Bex::JoinPath(directory, "domains"); }

Bex::CSimpleString BackupDomains(std::string_view directory) { return Bex::JoinPath(directory, "backupdomains"); }

/// Looked for in the directory that the environment names, and only there.
Bex::CSimpleString Aliases()
{
    const Bex::CSimpleString strDirectory = ConfigDirectory();
    return strDirectory.IsEmpty() ? strDirectory : Bex::JoinPath(strDirectory, "aliases");
}

Bex::CSimpleString Filters(std::string_view directory)
{
    return Bex::JoinPath(directory, Config().GetPath(Keys::FILTERS_FILE));
}

Bex::CSimpleString SmartHosts(std::string_view directory) { return Bex::JoinPath(directory, "smarthosts"); }

Bex::CSimpleString Masquerading() { return Config().GetPath(Keys::MASK_FILE); }

Bex::CSimpleString InterceptAddresses()
{
    return Bex::JoinPath(ConfigDirectory(), Config().GetPath(Keys::INTERCEPT_ADDRESSES_FILE));
}

} // namespace TableFiles
