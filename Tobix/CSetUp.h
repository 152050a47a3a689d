#pragma once

#include "Bex/CSimpleString.h"

#include <functional>

/// Reads the configuration and everything that hangs on it: logging, directories, users and tables. Made for one
/// start or one restart, and used by the thread that does it while no worker runs.
///
/// At a start the first step that fails ends it; a restart goes through all of them, with what it has.
class CSetUp
{
public:
    enum class EMode { Start, Restart };

    /// Report is called after each step that may take its time.
    CSetUp(EMode mode, bool bConsole, const Bex::CSimpleString& strDirectory, const Bex::CSimpleString& strFileName,
           std::function<void()> Report);

    bool Run(); ///< false (logged) when a start failed

    static bool CanRead(const Bex::CSimpleString& strConfiguration); ///< without a line in the log

private:
    bool LoadConfiguration() const;
    bool ConfigureLogging() const;
    bool CheckDirectories() const;
    bool InitializeSpool() const;
    bool LoadDomains() const;
    bool LoadBackupDomains() const;
    bool LoadAliases() const;
    bool LoadFilters() const;
    bool LoadSmartHosts() const;
    bool LoadMasquerading() const;

    bool IsStart() const { return m_mode == EMode::Start; }
    void LogTableFailure(const char* pszTable) const;

    EMode m_mode;
    bool m_bConsole;
    Bex::CSimpleString m_strDirectory;
    Bex::CSimpleString m_strFileName;
    std::function<void()> m_Report;
};
