#include "Bex/CFileTreeChangeMonitor.h"

#include "Bex/FrozenLine.h"
#include "Bex/Log.h"
#include "Platform/Errors.h"
#include "Platform/FileSystem.h"

#include <utility>
#include <vector>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CFileTreeChangeMonitor";
constexpr FrozenLine ALREADY_CREATED_LINE = 93;
constexpr FrozenLine OPEN_LINE = 104;
constexpr FrozenLine NO_MEMORY_LINE = 142;
constexpr FrozenLine WATCH_LINE = 148;
constexpr FrozenLine NOT_WATCHED_LINE = 224;
constexpr FrozenLine OVERFLOW_LINE = 228;
constexpr FrozenLine ROOT_GONE_LINE = 250;
constexpr size_t LOCAL_BUFFER_BYTES = 327680;
constexpr size_t NETWORK_BUFFER_BYTES = 65536;

bool IsAboutTheDirectory(uint32_t dwSysError)
{
    return dwSysError == Platform::SYS_FILE_NOT_FOUND || dwSysError == Platform::SYS_PATH_NOT_FOUND ||
           dwSysError == Platform::SYS_ACCESS_DENIED || dwSysError == Platform::SYS_DIRECTORY;
}

void LogWatchFailure(Platform::SError error)
{
    if (error.iLibError == Platform::LIB_NO_MEMORY)
        LogError(MainLog(), "memory allocation failed in %s:%d failed", SOURCE_FILE, NO_MEMORY_LINE);
    else
        LogError(MainLog(), "ReadDirectoryChangesW in %s:%d failed, error-code: 0x%08X", SOURCE_FILE, WATCH_LINE,
                 error.dwSysError);
}

void LogLoss(Platform::SError loss, bool bHasRoot)
{
    if (!bHasRoot)
        LogError(MainLog(), "ReadDirectoryChangesW in %s:%d failed, error-code: 0x%08X", SOURCE_FILE, ROOT_GONE_LINE,
                 loss.dwSysError);
    else if (loss.iLibError != 0)
        LogError(MainLog(), "GetOverlappedResult in %s:%d failed, error-code: 0x%08X", SOURCE_FILE, NOT_WATCHED_LINE,
                 loss.dwSysError);
    else
        LogError(MainLog(), "GetOverlappedResult in %s:%d indicated insufficient buffer for ReadDirectoryChangesW",
                 SOURCE_FILE, OVERFLOW_LINE);
}

} // namespace

CFileTreeChangeMonitor::~CFileTreeChangeMonitor() { Destroy(); }

void CFileTreeChangeMonitor::OnAdded(const CSimpleString&) {}

void CFileTreeChangeMonitor::OnRemoved(const CSimpleString&) {}

void CFileTreeChangeMonitor::OnModified(const CSimpleString&) {}

void CFileTreeChangeMonitor::OnRenamed(const CSimpleString&, const CSimpleString&) {}

void CFileTreeChangeMonitor::OnUnknownAction(const CSimpleString& strName, unsigned dwAction)
{
    LogWarning(MainLog(), "unknown action %d for file \"%s\"", static_cast<int>(dwAction), strName.Text());
}

bool CFileTreeChangeMonitor::OnRecord(const Platform::STreeRecord& record, const Platform::STreeRecord* pNext)
{
    using enum Platform::ETreeAction;
    const bool bToldByNext = pNext != nullptr && pNext->strName == record.strName &&
                             (pNext->action == record.action || (record.action == Added && pNext->action == Modified));
    if (bToldByNext)
        return true;
    const CSimpleString strName(std::string_view(record.strName));
    switch (record.action) {
    case Added:
        OnAdded(strName);
        break;
    case Removed:
        OnRemoved(strName);
        break;
    case Modified:
        OnModified(strName);
        break;
    case RenamedFrom:
        m_strPendingOldName = strName;
        break;
    case RenamedTo:
        OnRenamed(std::exchange(m_strPendingOldName, CSimpleString()), strName);
        break;
    default:
        OnUnknownAction(strName, static_cast<unsigned>(record.action));
    }
    return true;
}

void CFileTreeChangeMonitor::Create(const CSimpleString& strDirectory, Platform::CTreeWatch::Filter filter,
                                    std::string_view leftOut)
{
    const CScopedLock lock(m_lock);
    if (m_watch.IsOpen()) {
        LogError(MainLog(), "CFileTreeChangeMonitor in %s:%d already created", SOURCE_FILE, ALREADY_CREATED_LINE);
        return;
    }
    const bool bNetwork = Platform::IsNetworkPath(strDirectory.Text());
    const size_t nBuffer = bNetwork ? NETWORK_BUFFER_BYTES : LOCAL_BUFFER_BYTES;
    const bool bOpen = m_watch.Open(strDirectory.Text(), nBuffer, std::move(filter), leftOut);
    const Platform::SError error = Platform::LastError();
    if (!bOpen && IsAboutTheDirectory(error.dwSysError)) {
        LogError(MainLog(), "CreateFile in %s:%d on \"%s\" failed, error-code: 0x%08X", SOURCE_FILE, OPEN_LINE,
                 strDirectory.Text(), error.dwSysError);
        return;
    }
    if (bNetwork)
        LogWarning(MainLog(),
                   "CFileTreeChangeMonitor on network path: reduced buffer size to %d due to SMB-packet-size "
                   "limitations",
                   static_cast<int>(nBuffer));
    if (!bOpen)
        LogWatchFailure(error);
}

bool CFileTreeChangeMonitor::HasChanged()
{
    const CScopedLock lock(m_lock);
    if (!m_watch.IsOpen())
        return false;
    std::vector<Platform::STreeRecord> records;
    Platform::SError loss;
    // Lost records may have been the ones that count, so losing some is a change, too.
    bool bChanged = !m_watch.Fetch(records, loss);
    if (bChanged)
        LogLoss(loss, m_watch.HasRoot());
    for (size_t n = 0; n < records.size(); ++n) {
        const Platform::STreeRecord* const pNext = n + 1 < records.size() ? &records[n + 1] : nullptr;
        bChanged = OnRecord(records[n], pNext) || bChanged;
    }
    if (!m_watch.HasRoot())
        m_watch.Close();
    return bChanged;
}

void CFileTreeChangeMonitor::Destroy()
{
    const CScopedLock lock(m_lock);
    m_watch.Close();
    m_strPendingOldName = CSimpleString();
}

} // namespace Bex
