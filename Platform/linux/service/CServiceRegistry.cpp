#include "Platform/CServiceRegistry.h"

#include "Platform/CChildProcess.h"
#include "Platform/CTemporaryFile.h"
#include "Platform/CommandLine.h"
#include "Platform/Errors.h"
#include "Platform/FileSystem.h"
#include "Platform/Process.h"
#include "Platform/linux/base/Result.h"
#include "Platform/linux/service/ServiceUser.h"

#include <algorithm>
#include <cstdio>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Platform {

namespace {

constexpr const char* SYSTEM_UNIT_DIRECTORY = "/etc/systemd/system";
constexpr const char* MANAGER_DIRECTORY = "/run/systemd/system"; ///< exists while systemd runs, sd_booted(3)
constexpr const char* SYSTEMCTL = "/usr/bin/systemctl ";
constexpr const char* WANTS_DIRECTORY = "/multi-user.target.wants";
constexpr unsigned LONGEST_TOOL = 600'000; ///< milliseconds
constexpr size_t LONGEST_NAME = 200;

bool Fail(ESysError sysError, ELibError libError = LIB_OTHER)
{
    SetLastError({libError, sysError});
    return false;
}

/// Runs one of systemd's programs; false also when it tells of a failure.
bool RunTool(const std::string& strCommandLine)
{
    const auto pChild = CChildProcess::Start("", strCommandLine, nullptr);
    uint32_t dwExitCode = 0;
    if (!pChild || !pChild->Wait(LONGEST_TOOL) || !pChild->ExitCode(dwExitCode))
        return false;
    return dwExitCode == 0 || Fail(SYS_GENERAL_FAILURE);
}

/// What systemd.unit(5) allows, without "@", which makes a template, and backslashes.
bool IsName(std::string_view strShortName)
{
    return !strShortName.empty() && strShortName.size() <= LONGEST_NAME &&
           std::all_of(strShortName.begin(), strShortName.end(), [](char c) {
               return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
                      c == '-' || c == '.' || c == ':';
           });
}

std::string UnitName(std::string_view strShortName)
{
    std::string strName(strShortName);
    std::transform(strName.begin(), strName.end(), strName.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return strName + ".service";
}

/// A unit file has no way to hold a line end within a value.
bool HasControlCharacter(std::string_view strText)
{
    return std::any_of(strText.begin(), strText.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; });
}

bool CanBeWritten(const SServiceEntry& entry)
{
    const auto& directories = entry.writableDirectories;
    return IsName(entry.strShortName) && !HasControlCharacter(entry.strDisplayName) &&
           !HasControlCharacter(entry.strExecutable) && !HasControlCharacter(entry.strParameters) &&
           !HasControlCharacter(entry.strConfigDirectory) &&
           std::none_of(directories.begin(), directories.end(), HasControlCharacter);
}

/// All of it under its final name, or nothing.
bool WriteWhole(const std::string& strPath, const std::string& strText)
{
    constexpr unsigned READABLE_BY_ALL = 0644;
    CTemporaryFile unit;
    CFileHandle file;
    return unit.Create(strPath.c_str(), file, nullptr, READABLE_BY_ALL) &&
           file.Write(strText.data(), strText.size()) >= 0 && file.Close() && unit.Flush() && unit.TakeName();
}

bool StartAutomatically(const std::string& strDirectory, const std::string& strUnit)
{
    constexpr mode_t SEARCHABLE_BY_ALL = 0755;
    const std::string strWants = strDirectory + WANTS_DIRECTORY;
    if (mkdir(strWants.c_str(), SEARCHABLE_BY_ALL) != 0 && errno != EEXIST)
        return FailWithErrno();
    const std::string strLink = strWants + '/' + strUnit;
    if (symlink(("../" + strUnit).c_str(), strLink.c_str()) != 0 && errno != EEXIST)
        return FailWithErrno();
    return true;
}

/// Missing is as good as removed.
bool RemoveIfThere(const std::string& strPath)
{
    return RemoveFile(strPath.c_str()) || LastError().iLibError == LIB_NO_ENTRY;
}

} // namespace

bool EnsureServiceUser()
{
    if (getpwnam(SERVICE_USER) != nullptr)
        return true;
    const std::string strLine = std::string("u ") + SERVICE_USER + " - \"Mail delivery\"";
    return RunTool("/usr/bin/systemd-sysusers --inline " + QuoteArgument(strLine));
}

CServiceRegistry::CServiceRegistry()
{
    bool bOverridden = false;
    m_strDirectory = EnvironmentVariable("TOBIX_UNIT_DIR", bOverridden);
    bOverridden = !m_strDirectory.empty();
    if (!bOverridden)
        m_strDirectory = SYSTEM_UNIT_DIRECTORY;
    // Another directory's units are not the running system's: never stop those by a name that is the same by chance.
    m_bManagerRuns = !bOverridden && KindOf(MANAGER_DIRECTORY) == EPathKind::Directory;
}

bool CServiceRegistry::Open() const { return Succeeded(access(m_strDirectory.c_str(), W_OK | X_OK)); }

bool CServiceRegistry::Contains(std::string_view strShortName) const
{
    if (!IsName(strShortName))
        return Fail(SYS_INVALID_NAME, LIB_INVALID);
    const std::string strPath = m_strDirectory + '/' + UnitName(strShortName);
    return KindOf(strPath.c_str()) != EPathKind::Missing || Fail(SYS_NO_SUCH_SERVICE, LIB_NO_ENTRY);
}

bool CServiceRegistry::Create(const SServiceEntry& entry) const
{
    if (!CanBeWritten(entry))
        return Fail(SYS_INVALID_NAME, LIB_INVALID);
    const std::string strUnit = UnitName(entry.strShortName);
    if (!WriteWhole(m_strDirectory + '/' + strUnit, ComposeUnit(entry)))
        return false;
    const bool bDone = StartAutomatically(m_strDirectory, strUnit) &&
                       (!m_bManagerRuns || (EnsureServiceUser() && RunTool(std::string(SYSTEMCTL) + "daemon-reload")));
    if (!bDone) {
        const SError error = LastError();
        Delete(entry.strShortName);
        SetLastError(error);
    }
    return bDone;
}

bool CServiceRegistry::IsRunning(std::string_view strShortName) const
{
    return m_bManagerRuns && RunTool(SYSTEMCTL + ("--quiet is-active " + UnitName(strShortName)));
}

bool CServiceRegistry::Stop(std::string_view strShortName) const
{
    return RunTool(SYSTEMCTL + ("stop " + UnitName(strShortName)));
}

bool CServiceRegistry::Delete(std::string_view strShortName) const
{
    const std::string strUnit = UnitName(strShortName);
    return RemoveIfThere(m_strDirectory + WANTS_DIRECTORY + '/' + strUnit) &&
           RemoveFile((m_strDirectory + '/' + strUnit).c_str()) &&
           (!m_bManagerRuns || RunTool(std::string(SYSTEMCTL) + "daemon-reload"));
}

} // namespace Platform
