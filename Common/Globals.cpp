#include "Common/Globals.h"

#include "Platform/FileSystem.h"

#include <cstdlib>
#include <memory>

namespace {

/// For an object that stays until the process ends: threads may use it while static objects are being destroyed.
template <class T>
T& MakeForGood()
{
    return *std::make_unique<T>().release();
}

} // namespace

Bex::CConfigFile& Config()
{
    static auto& config = MakeForGood<Bex::CConfigFile>();
    return config;
}

CDomains& LocalDomains()
{
    static auto& domains = MakeForGood<CDomains>();
    return domains;
}

CDomains& BackupDomains()
{
    static auto& domains = MakeForGood<CDomains>();
    return domains;
}

CAliases& Aliases()
{
    static auto& aliases = MakeForGood<CAliases>();
    return aliases;
}

CUsers& Users()
{
    static auto& users = MakeForGood<CUsers>();
    return users;
}

CMailFilter& Filters()
{
    static auto& filters = MakeForGood<CMailFilter>();
    return filters;
}

CSmartHosts& SmartHosts()
{
    static auto& smartHosts = MakeForGood<CSmartHosts>();
    return smartHosts;
}

Bex::CStorableStringHash& Masquerading()
{
    static auto& masquerading = MakeForGood<Bex::CStorableStringHash>();
    return masquerading;
}

Bex::CSimpleString ConfigDirectory()
{
    const char* const pszDirectory = std::getenv("MAILCONFIGDIR");
    return Bex::CSimpleString(Platform::NativePath(pszDirectory != nullptr ? pszDirectory : ""));
}
