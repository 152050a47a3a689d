#include "Tobix/CWatchedDirectory.h"

#include "Platform/Clock.h"
#include "Platform/FileSystem.h"

#include <utility>

namespace {

constexpr unsigned REARM_MILLIS = 30000;

} // namespace

CWatchedDirectory::CWatchedDirectory(const Bex::CSimpleString& strPath) : m_strPath(strPath)
{
    m_monitor.Open(m_strPath);
    m_nRearmTicks = Platform::TickCount() + REARM_MILLIS;
}

bool CWatchedDirectory::MayHaveChanged()
{
    const bool bWasWatched = m_monitor.Waitable().WaitDescriptor() >= 0;
    const bool bChanged = m_monitor.HasChanged();
    if (m_monitor.Waitable().WaitDescriptor() < 0) {
        if (bWasWatched)
            m_nRearmTicks = 0; // the directory went away; another may stand there already
        Rearm();
    }
    return std::exchange(m_bAskAgain, false) || bChanged;
}

void CWatchedDirectory::Rearm()
{
    if (Platform::TickCount() < m_nRearmTicks || Platform::KindOf(m_strPath.Text()) != Platform::EPathKind::Directory)
        return;
    m_nRearmTicks = Platform::TickCount() + REARM_MILLIS;
    m_monitor.Open(m_strPath);
    m_bAskAgain = true;
}
