#include "Bex/CFileChangeMonitor.h"

#include "Bex/Log.h"
#include "Platform/Errors.h"

namespace {

constexpr char SOURCE_FILE[] = "Bex/CFileChangeMonitor";

void LogFailure(const char* pszOperation, int iLine)
{
    Bex::LogError(Bex::MainLog(), "%s in %s:%d failed, error-code: 0x%08X", pszOperation, SOURCE_FILE, iLine,
                  Platform::LastError().dwSysError);
}

} // namespace

CFileChangeMonitor::~CFileChangeMonitor() { Close(); }

void CFileChangeMonitor::Open(const Bex::CSimpleString& strDirectory)
{
    Close();
    if (!m_watch.Open(strDirectory.Text()))
        Bex::LogError(Bex::MainLog(), "FindFirstChangeNotification in %s:%d on \"%s\" failed, error-code: 0x%08X",
                      SOURCE_FILE, 32, strDirectory.Text(), Platform::LastError().dwSysError);
}

bool CFileChangeMonitor::HasChanged()
{
    if (!m_watch.IsOpen())
        return false;
    switch (m_watch.Consume()) {
    case Platform::CDirectoryWatch::EResult::Unchanged:
        return false;
    case Platform::CDirectoryWatch::EResult::Changed:
        return true;
    case Platform::CDirectoryWatch::EResult::Broken:
        LogFailure("FindNextChangeNotification", 62);
        if (!m_watch.Close())
            LogFailure("FindCloseChangeNotification", 66);
        return true;
    case Platform::CDirectoryWatch::EResult::Failed:
        LogFailure("WaitForSingleObject", 77);
        return false;
    }
    Bex::LogError(Bex::MainLog(), "WaitForSingleObject in %s:%d produced unexpected result, error-code: 0x%08X",
                  SOURCE_FILE, 81, Platform::LastError().dwSysError);
    return false;
}

void CFileChangeMonitor::Close()
{
    if (m_watch.IsOpen() && !m_watch.Close())
        LogFailure("FindCloseChangeNotification", 42);
}
