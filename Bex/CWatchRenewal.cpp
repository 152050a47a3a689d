#include "Bex/CWatchRenewal.h"

#include "Platform/Clock.h"
#include "Platform/FileSystem.h"

#include <utility>

namespace Bex {

void CWatchRenewal::Begin(const CSimpleString& strPath)
{
    m_strPath = strPath;
    m_directory = {};
    Look(m_directory);
    m_bWorked = false;
    m_bNetwork = Platform::IsNetworkPath(m_strPath.Text());
    m_nTicks = Platform::TickCount();
}

bool CWatchRenewal::IsDue(bool bWorks)
{
    Platform::SFileIdentity directory;
    const bool bBroke = std::exchange(m_bWorked, bWorks) && !bWorks;
    if (!Look(directory)) {
        m_bWorked = true; // what appears there is taken at once
        return false;
    }
    const bool bPatient = !bBroke && Platform::TickCount() - m_nTicks < PATIENCE_MILLIS;
    if (directory.IsSameInode(m_directory) && (bWorks || bPatient))
        return false;
    Begin(m_strPath);
    return true;
}

bool CWatchRenewal::HasToLook()
{
    if (!m_bNetwork || Platform::TickCount() - m_nTicks < PATIENCE_MILLIS)
        return false;
    m_nTicks = Platform::TickCount();
    return true;
}

bool CWatchRenewal::Look(Platform::SFileIdentity& directory) const
{
    return Platform::IdentityOf(m_strPath.Text(), directory, Platform::ELinks::Follow);
}

} // namespace Bex
