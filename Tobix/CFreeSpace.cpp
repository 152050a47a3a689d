#include "Tobix/CFreeSpace.h"

#include "Bex/Log.h"
#include "Common/Globals.h"
#include "Platform/Clock.h"
#include "Platform/Errors.h"
#include "Platform/FileSystem.h"

#include <utility>

namespace {

constexpr uint64_t ASK_MILLIS = 1000;

} // namespace

bool CFreeSpace::IsShort()
{
    if (m_iLeastPercent > 0 && Platform::TickCount() >= m_nNextTicks) {
        Ask();
        m_nNextTicks = Platform::TickCount() + ASK_MILLIS;
    }
    return m_bShort;
}

void CFreeSpace::Ask()
{
    bool bShort = false;
    bool bUnknown = false;
    for (const Bex::CSimpleString& strDirectory : m_directories) {
        int iPercent = 0;
        if (!Platform::FreePercent(strDirectory.Text(), iPercent)) {
            if (!std::exchange(m_bToldUnknown, true))
                Bex::LogError(Bex::MainLog(), "cannot tell what is free on the volume of \"%s\" (SysError=%d)",
                              strDirectory.Text(), static_cast<int>(Platform::LastError().dwSysError));
            bUnknown = true;
        } else if (iPercent < m_iLeastPercent && !std::exchange(bShort, true) && !m_bShort) {
            Bex::LogError(Bex::MainLog(),
                          "no mail is taken from the queue while less than %d%% (%s) is free on the volume of \"%s\": "
                          "%d%%",
                          m_iLeastPercent, Keys::QUEUE_MIN_FREE.Name(), strDirectory.Text(), iPercent);
        }
    }
    m_bToldUnknown = bUnknown;
    if (m_bShort.exchange(bShort) && !bShort)
        Bex::LogNotice(Bex::MainLog(), "mail is taken from the queue again: no volume has less than %d%% free",
                       m_iLeastPercent);
}
