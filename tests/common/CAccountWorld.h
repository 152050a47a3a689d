#pragma once

#include "Common/Globals.h"
#include "support/CTemporaryDirectory.h"

#include <initializer_list>

/// A spool directory and local domains of the test's own, in the process-wide objects.
class CAccountWorld
{
public:
    CAccountWorld(std::initializer_list<const char*> users, const char* pszDomains)
    {
        for (const char* pszUser : users)
            std::filesystem::create_directories(m_directory.Path() / "spool" / pszUser);
        Config().RemoveAll();
        Config().Set("SpoolDir", Bex::CSimpleString(m_directory / "spool"));
        Users().InitUsers();
        LocalDomains().Load(Bex::CSimpleString(m_directory.Write("domains", pszDomains)));
    }
    ~CAccountWorld() { Config().RemoveAll(); }
    CAccountWorld(const CAccountWorld&) = delete;
    CAccountWorld& operator=(const CAccountWorld&) = delete;

    const CTemporaryDirectory& Directory() const { return m_directory; }

private:
    CTemporaryDirectory m_directory;
};
