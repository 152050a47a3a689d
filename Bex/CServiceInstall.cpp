#include "Bex/CService.h"

#include "Bex/CConfigFile.h"
#include "Platform/CServiceRegistry.h"
#include "Platform/CommandLine.h"
#include "Platform/Errors.h"
#include "Platform/FileSystem.h"
#include "Platform/Process.h"

#include <cstdio>

namespace Bex {

namespace {

int LastCode() { return static_cast<int>(Platform::LastError().dwSysError); }

void CannotInstall(const char* pszDisplayName, const char* pszReason)
{
    std::fprintf(stderr, "Unable to install %s. %s. Code = %d\n", pszDisplayName, pszReason, LastCode());
}

void CannotRemove(const char* pszDisplayName, const char* pszReason)
{
    std::fprintf(stderr, "Unable to remove %s. %s. Code = %d\n", pszDisplayName, pszReason, LastCode());
}

} // namespace

void CService::Install(const char* pszShortName, const char* pszDisplayName, const char* pszParameters)
{
    Platform::SServiceEntry entry;
    entry.strShortName = pszShortName != nullptr ? pszShortName : m_strShortName.Text();
    entry.strDisplayName = pszDisplayName != nullptr ? pszDisplayName : m_strDisplayName.Text();
    const char* const pszName = entry.strDisplayName.c_str();

    const Platform::CServiceRegistry registry;
    if (registry.Contains(entry.strShortName)) {
        Platform::SetLastError({Platform::LIB_EXISTS, Platform::SYS_SERVICE_EXISTS});
        return CannotInstall(m_strDisplayName.Text(), "Service is already installed");
    }
    entry.strExecutable = Platform::ExecutablePath();
    if (entry.strExecutable.empty())
        return CannotInstall(pszName, "Could not get the module file name");
    entry.strParameters = pszParameters != nullptr ? pszParameters : "";
    bool bPresent = false;
    entry.strConfigDirectory =
        Platform::AbsolutePath(Platform::EnvironmentVariable(CONFIG_DIRECTORY_VARIABLE, bPresent));
    for (const CSimpleString& strDirectory : WritableDirectories(Platform::SplitCommandLine(entry.strParameters)))
        entry.writableDirectories.push_back(Platform::AbsolutePath(strDirectory.View()));
    if (!registry.Open())
        return CannotInstall(pszName, "Could not open the service control manager");
    if (!registry.Create(entry))
        return CannotInstall(pszName, "Could not create the service entry");
    std::printf("%s installed.\n", pszName);
    OnInstalled();
}

void CService::Uninstall(const char* pszShortName)
{
    const char* const pszService = pszShortName != nullptr ? pszShortName : m_strShortName.Text();
    const char* const pszName = m_strDisplayName.Text();

    const Platform::CServiceRegistry registry;
    if (!registry.Open() || !registry.Contains(pszService))
        return CannotRemove(pszName, "You have no priviledges or the service is not installed");
    if (registry.IsRunning(pszService)) {
        std::printf("Stopping %s....\n", pszName);
        std::fflush(stdout);
        if (!registry.Stop(pszService))
            return CannotRemove(pszName, "Could not stop the service");
    }
    // Stopping takes time, in which others may have removed it.
    if (!registry.Open())
        return CannotRemove(pszName, "Could not open the service control manager");
    if (!registry.Contains(pszService)) {
        const CSimpleString strReason = CSimpleString::Formatted("Could not open the service entry %s", pszService);
        return CannotRemove(pszName, strReason.Text());
    }
    if (!registry.Delete(pszService))
        return CannotRemove(pszName, "Could not delete the service");
    std::printf("%s removed.\n", pszName);
    OnUninstalled();
}

} // namespace Bex
