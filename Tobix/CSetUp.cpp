#include "Tobix/CSetUp.h"

#include "Bex/CActivity.h"
#include "Bex/CErrorLines.h"
#include "Bex/CFileException.h"
#include "Bex/CWithheldLog.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/CConfigCheck.h"
#include "Common/Globals.h"
#include "Platform/FileSystem.h"
#include "Tobix/LogSetUp.h"
#include "Tobix/TableFiles.h"

#include <iterator>
#include <vector>

namespace {

constexpr char SOURCE_FILE[] = "Tobix/SetUp";

/// A table whose file breaks off while it is read counts as not loaded.
template <class TTable>
bool LoadTable(TTable& table, const Bex::CSimpleString& strPath)
{
    try {
        return table.Load(strPath);
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
        return false;
    }
}

bool IsDirectory(const Bex::CSimpleString& strPath)
{
    return Platform::KindOf(strPath.Text()) == Platform::EPathKind::Directory;
}

/// For who asks why the start has failed: the log's line has no room for it.
void NoteFile(const Bex::CSimpleString& strPath, Platform::SError error)
{
    Bex::CErrorLines::Note(Bex::CSimpleString::Formatted("%s (SysError=%d, LibError=%d)", strPath.Text(),
                                                         static_cast<int>(error.dwSysError), error.iLibError));
}

/// One that is misspelled has no effect, which is hard to see otherwise.
void TellUnknownKeys(const Bex::CSimpleString& strPath)
{
    CConfigCheck check(Keys::TABLE);
    LoadTable(check, strPath);
    for (const CConfigCheck::SProblem& problem : check.Problems()) {
        if (problem.problem == CConfigCheck::EProblem::UnknownKey)
            Bex::LogWarning(Bex::MainLog(), "unknown key \"%s\" at %s:%u", problem.strKey.Text(), strPath.Text(),
                            problem.nLine);
    }
}

} // namespace

CSetUp::CSetUp(EMode mode, bool bConsole, const Bex::CSimpleString& strDirectory, const Bex::CSimpleString& strFileName,
               std::function<void()> Report)
    : m_mode(mode), m_bConsole(bConsole), m_strDirectory(strDirectory), m_strFileName(strFileName),
      m_Report(std::move(Report))
{}

bool CSetUp::Run()
{
    static constexpr struct
    {
        bool (CSetUp::*Run)() const;
        bool bReport = true;
    } STEPS[] = {
        {&CSetUp::LoadConfiguration}, {&CSetUp::ConfigureLogging}, {&CSetUp::CheckDirectories},
        {&CSetUp::InitializeSpool},   {&CSetUp::LoadDomains},      {&CSetUp::LoadBackupDomains, false},
        {&CSetUp::LoadAliases},       {&CSetUp::LoadFilters},      {&CSetUp::LoadSmartHosts},
        {&CSetUp::LoadMasquerading},
    };
    for (const auto& step : STEPS) {
        Bex::CActivity::Alive();
        if (!(this->*step.Run)() && IsStart())
            return false;
        if (step.bReport)
            m_Report();
    }
    return true;
}

bool CSetUp::LoadConfiguration() const
{
    Bex::LogInfo(Bex::MainLog(), "loading configuration file %s...", m_strFileName.Text());
    const Bex::CSimpleString strPath = Bex::JoinPath(m_strDirectory, Platform::NativePath(m_strFileName));
    const bool bLoaded = LoadTable(Config(), strPath);
    if (!bLoaded) {
        Bex::LogError(Bex::MainLog(), "could not load configuration");
        NoteFile(strPath, Platform::LastError());
    } else if (m_bConsole) { // other programs keep keys of their own in the file, as a service's log need not tell
        TellUnknownKeys(strPath);
    }
    return bLoaded;
}

bool CSetUp::CanRead(const Bex::CSimpleString& strConfiguration)
{
    const Bex::CWithheldLog log;
    Bex::CConfigFile probe;
    return LoadTable(probe, strConfiguration);
}

bool CSetUp::ConfigureLogging() const
{
    Bex::LogInfo(Bex::MainLog(), "configuring logging...");
    if (!m_bConsole)
        LogSetUp::ToConfiguredSyslog();
    return true;
}

bool CSetUp::CheckDirectories() const
{
    Bex::LogInfo(Bex::MainLog(), "checking directories...");
    bool bAll = true;
    std::vector<Bex::CPathKey> required(std::begin(Keys::REQUIRED_DIRECTORIES), std::end(Keys::REQUIRED_DIRECTORIES));
    if (!Config().GetPath(Keys::LOCK_DIR).IsEmpty())
        required.push_back(Keys::LOCK_DIR);
    for (const Bex::CPathKey& key : required) {
        const Bex::CSimpleString strPath = Config().GetPath(key);
        if (IsDirectory(strPath))
            continue;
        Bex::LogError(Bex::MainLog(), "invalid %s, \"%s\" is missing or no directory", key.Name(), strPath.Text());
        if (IsStart())
            return false;
        bAll = false;
    }
    const Bex::CSimpleString strFilter = Config().GetPath(Keys::FILTER_DIR);
    if (!IsDirectory(strFilter))
        Bex::LogWarning(Bex::MainLog(), "invalid FilterDir, \"%s\" is missing or no directory", strFilter.Text());
    return bAll;
}

bool CSetUp::InitializeSpool() const
{
    Bex::LogInfo(Bex::MainLog(), "initializing spool manager...");
    const bool bInitialized = Users().InitUsers();
    if (!bInitialized)
        Bex::LogError(Bex::MainLog(), "could not initialize spool manager");
    return bInitialized;
}

bool CSetUp::LoadDomains() const
{
    Bex::LogInfo(Bex::MainLog(), "loading 'domains'-file...");
    const bool bLoaded = LoadTable(LocalDomains(), TableFiles::Domains(m_strDirectory));
    if (!bLoaded)
        LogTableFailure("domains");
    return bLoaded;
}

bool CSetUp::LoadBackupDomains() const
{
    Bex::LogInfo(Bex::MainLog(), "loading 'backupdomains'-file...");
    LoadTable(BackupDomains(), TableFiles::BackupDomains(m_strDirectory)); // need not be there
    return true;
}

bool CSetUp::LoadAliases() const
{
    Bex::LogInfo(Bex::MainLog(), "loading 'aliases'-file...");
    const Bex::CSimpleString strFile = TableFiles::Aliases();
    const bool bLoaded = !strFile.IsEmpty() && LoadTable(Aliases(), strFile);
    if (!bLoaded) {
        LogTableFailure("aliases");
        if (IsStart())
            return false;
    }
    Bex::LogInfo(Bex::MainLog(), "number of faulty aliases: %d", Aliases().FaultyEntries());
    Bex::LogInfo(Bex::MainLog(), "preresolving aliases...");
    Aliases().PreresolveAliases();
    return bLoaded;
}

bool CSetUp::LoadFilters() const
{
    Bex::LogInfo(Bex::MainLog(), "loading 'filters'-file...");
    if (!LoadTable(Filters(), TableFiles::Filters(m_strDirectory)))
        Bex::LogWarning(Bex::MainLog(), "could not load 'filters'-file");
    return true;
}

bool CSetUp::LoadSmartHosts() const
{
    Bex::LogInfo(Bex::MainLog(), "loading optional 'smarthosts'-file...");
    LoadTable(SmartHosts(), TableFiles::SmartHosts(m_strDirectory)); // need not be there
    return true;
}

/// A restart leaves the table to the main loop, which keeps it current.
bool CSetUp::LoadMasquerading() const
{
    const Bex::CSimpleString strFile = TableFiles::Masquerading();
    if (!IsStart() || strFile.IsEmpty())
        return true;
    Bex::LogInfo(Bex::MainLog(), "loading masquerading-file...");
    LoadTable(Masquerading(), strFile);
    return true;
}

/// Without the table a start fails; a restart goes on with the old one.
void CSetUp::LogTableFailure(const char* pszTable) const
{
    if (IsStart())
        Bex::LogError(Bex::MainLog(), "could not load '%s'-file", pszTable);
    else
        Bex::LogWarning(Bex::MainLog(), "could not load '%s'-file", pszTable);
}
