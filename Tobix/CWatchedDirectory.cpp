#include "Tobix/CWatchedDirectory.h"

#include <utility>

CWatchedDirectory::CWatchedDirectory(const Bex::CSimpleString& strPath, std::string_view ending)
    : m_strPath(strPath), m_ending(ending)
{
    m_renewal.Begin(m_strPath);
    m_monitor.Open(m_strPath, m_ending);
}

bool CWatchedDirectory::MayHaveChanged()
{
    const bool bChanged = m_monitor.HasChanged();
    if (m_renewal.IsDue(m_monitor.Waitable().WaitDescriptor() >= 0)) {
        m_monitor.Open(m_strPath, m_ending);
        m_bAskAgain = true;
    }
    return m_renewal.HasToLook() || std::exchange(m_bAskAgain, false) || bChanged;
}
