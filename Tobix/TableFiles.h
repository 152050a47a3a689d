#pragma once

#include "Bex/CSimpleString.h"

#include <string_view>

/// Where each table is read from, by the configuration that is loaded; the directory is the configuration's. Any
/// thread.
namespace TableFiles {

Bex::CSimpleString Domains(std::string_view directory);
Bex::CSimpleString BackupDomains(std::string_view directory); ///< need not be there
Bex::CSimpleString Aliases();                                 ///< empty: nothing names the directory
Bex::CSimpleString Filters(std::string_view directory);
Bex::CSimpleString SmartHosts(std::string_view directory); ///< need not be there
Bex::CSimpleString Masquerading();                         ///< empty: there is no such table
Bex::CSimpleString InterceptAddresses();                   ///< need not be there

} // namespace TableFiles
