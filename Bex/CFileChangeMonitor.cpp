#include "Bex/CFileChangeMonitor.h"

#include "Bex/FrozenLine.h"
#include "Bex/Log.h"
#include "Platform/Errors.h"

namespace {

constexpr char SOURCE_FILE[] = "Bex/CFileChangeMonitor";
constexpr Bex::FrozenLine OPEN_LINE = 32;
constexpr Bex::FrozenLine CLOSE_LINE = 42;
constexpr Bex::FrozenLine REARM_LINE = 62;
constexpr Bex::FrozenLine CLOSE_BROKEN_LINE = 66;
constexpr Bex::FrozenLine WAIT_LINE = 77;
constexpr Bex::FrozenLine UNEXPECTED_LINE = 81;

void LogFailure(const char* pszOperation, int iLine)
{
    Bex::LogError(Bex::MainLog(), "%s in %s:%d failed, error-code: 0x%08X", pszOperation, SOURCE_FILE, iLine,
                  Platform::LastError().dwSysError);
}

} // namespace

CFileChangeMonitor::~CFileChangeMonitor() { Close(); }

void CFileChangeMonitor::Open(const Bex::CSimpleString& strDirectory, std::string_view ending)
{
    Close();
    if (!m_watch.Open(strDirectory.Text(), ending))
        Bex::LogError(Bex::MainLog(), "FindFirstChangeNotification in %s:%d on \"%s\" failed, error-code: 0x%08X",
                      SOURCE_FILE, OPEN_LINE, strDirectory.Text(), Platform::LastError().dwSysError);
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
        LogFailure("FindNextChangeNotification", REARM_LINE);
        if (!m_watch.Close())
            LogFailure("FindCloseChangeNotification", CLOSE_BROKEN_LINE);
        return true;
    case Platform::CDirectoryWatch::EResult::Failed:
        LogFailure("WaitForSingleObject", WAIT_LINE);
        return false;
    }
    Bex::LogError(Bex::MainLog(), "WaitForSingleObject in %s:%d produced unexpected result, error-code: 0x%08X",
                  SOURCE_FILE, UNEXPECTED_LINE, Platform::LastError().dwSysError);
    return false;
}

void CFileChangeMonitor::Close()
{
    if (m_watch.IsOpen() && !m_watch.Close())
        LogFailure("FindCloseChangeNotification", CLOSE_LINE);
}
