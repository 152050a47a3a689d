#include "Common/Globals.h"

#include "Platform/CImmortal.h"
#include "Platform/FileSystem.h"

#include <cstdlib>

Bex::CConfigFile& Config()
{
    static Platform::CImmortal<Bex::CConfigFile> config;
    return *config;
}

CDomains& LocalDomains()
{
    static Platform::CImmortal<CDomains> domains;
    return *domains;
}

CDomains& BackupDomains()
{
    static Platform::CImmortal<CDomains> domains;
    return *domains;
}

CAliases& Aliases()
{
    static Platform::CImmortal<CAliases> aliases;
    return *aliases;
}

CUsers& Users()
{
    static Platform::CImmortal<CUsers> users;
    return *users;
}

CMailFilter& Filters()
{
    static Platform::CImmortal<CMailFilter> filters;
    return *filters;
}

CSmartHosts& SmartHosts()
{
    static Platform::CImmortal<CSmartHosts> smartHosts;
    return *smartHosts;
}

Bex::CStorableStringHash& Masquerading()
{
    static Platform::CImmortal<Bex::CStorableStringHash> masquerading;
    return *masquerading;
}

Bex::CSimpleString ConfigDirectory()
{
    const char* const pszDirectory = std::getenv(Bex::CONFIG_DIRECTORY_VARIABLE);
    return Bex::CSimpleString(Platform::NativePath(pszDirectory != nullptr ? pszDirectory : ""));
}
