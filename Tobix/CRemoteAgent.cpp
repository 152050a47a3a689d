#include "Tobix/CRemoteAgent.h"

#include "Bex/CActivity.h"
#include "Bex/CFileException.h"
#include "Bex/CFileFind.h"
#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "Platform/Clock.h"
#include "Platform/FileSystem.h"
#include "Tobix/ServicePause.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "Tobix/RemoteAgent";
constexpr unsigned IDLE_MILLIS = 1000;
constexpr uint64_t REST_PER_LISTING = 9; ///< listing the directory takes at most a tenth of a processor
constexpr unsigned NAMES_PER_LOOK = 1024;
constexpr uint64_t MICROS_PER_MILLI = 1000;
constexpr uint64_t MILLIS_PER_SECOND = 1000;
constexpr int SECONDS_PER_MINUTE = 60;

} // namespace

CRemoteAgent::CRemoteAgent(std::shared_ptr<COutgoingFiles> pFiles, std::shared_ptr<CWaitingConnections> pWaiting)
    : m_directory(Config().GetPath(Keys::OUTGOING_DIR), CWatchedDirectory::MAIL_ENDING), m_pFiles(std::move(pFiles)),
      m_pWaiting(std::move(pWaiting))
{
    m_iRetryMin = int64_t{Config().GetInt(Keys::AUTO_TRANS_RETRY_MIN)} * SECONDS_PER_MINUTE;
    m_iRetryMax = int64_t{Config().GetInt(Keys::AUTO_TRANS_RETRY_MAX)} * SECONDS_PER_MINUTE;
}

void CRemoteAgent::Body()
{
    Bex::LogNotice(Bex::MainLog(), "remote delivery agent (id %04X) started", Id());
    while (ShallRun()) {
        WaitWhileServiceIsPaused(StopEvent(), [this] { m_pWaiting->EndAll(); });
        m_pWaiting->EndOld();
        const unsigned dwFound = ScanOutgoing(static_cast<int64_t>(Platform::TickCount() / MILLIS_PER_SECOND));
        Rest(RestMillis(m_nListingMicros));
        if (dwFound == 0 && ShallRun() && !m_directory.HasToBeAskedAgain())
            Bex::WaitForAny({&StopEvent().Waitable(), &m_directory.Waitable()}, IDLE_MILLIS);
    }
    m_pWaiting->EndAll();
    Bex::LogNotice(Bex::MainLog(), "remote delivery agent (id %04X) stopped", Id());
}

/// The delivery threads' own removals are changes, too: they must not make this thread list the directory all day. Of
/// two changes that belong together, a temporary file and its name, the second does not wait long.
unsigned CRemoteAgent::RestMillis(uint64_t nListingMicros)
{
    const uint64_t nRestMicros = nListingMicros * REST_PER_LISTING;
    return static_cast<unsigned>(
        std::min<uint64_t>((nRestMicros + MICROS_PER_MILLI - 1) / MICROS_PER_MILLI, INT32_MAX));
}

/// With a million files it is ten seconds, in which connections end and pauses begin.
void CRemoteAgent::Rest(unsigned dwMillis)
{
    while (dwMillis > 0 && !StopEvent().IsSet() && !ServiceIsPaused()) {
        const unsigned dwPart = std::min(dwMillis, IDLE_MILLIS);
        StopEvent().Wait(dwPart);
        m_pWaiting->EndOld();
        dwMillis -= dwPart;
    }
}

unsigned CRemoteAgent::ScanOutgoing(int64_t iNow)
{
    ReleaseRetriesWhenDue(iNow);
    m_nListingMicros = 0;
    if (!m_directory.MayHaveChanged())
        return 0;
    const uint64_t nStart = Platform::ThreadMicros();
    const unsigned dwFound = ListNewFiles();
    m_nListingMicros = Platform::ThreadMicros() - nStart;
    return dwFound;
}

void CRemoteAgent::ReleaseRetriesWhenDue(int64_t iNow)
{
    const int64_t iElapsed = iNow - m_iLastRelease.value_or(INT64_MIN / 2);
    const int64_t iWait = m_pFiles->HasPending() ? std::max(m_iRetryMin, m_iRetryMax) : m_iRetryMin;
    m_iNextRelease = (iElapsed <= iWait ? *m_iLastRelease : iNow) + iWait + 1;
    if (iElapsed <= iWait)
        return;
    m_iLastRelease = iNow;
    m_pFiles->ReleaseRetries();
}

unsigned CRemoteAgent::ListNewFiles()
{
    const Bex::CActivity::CStep step("lists the outgoing directory");
    unsigned dwCount = 0;
    try {
        Bex::CFileFind find;
        if (!find.Open(Bex::JoinPath(m_directory.Path(), "*.eml")))
            return 0;
        for (unsigned dwSeen = 0; find.Next(); ++dwSeen) {
            if (dwSeen % NAMES_PER_LOOK == 0 && StopEvent().IsSet())
                break; // a million names take seconds
            if (!find.IsDirectory() && AddFile(find.Name()))
                ++dwCount;
        }
    } catch (const Bex::CFileException& exception) {
        Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
        AskAgainLater();
    } catch (const std::exception& exception) {
        Bex::LogError(Bex::MainLog(), "listing \"%s\": %s", m_directory.Path().Text(), exception.what());
        AskAgainLater();
    }
    return dwCount;
}

void CRemoteAgent::AskAgainLater()
{
    m_directory.AskAgain(); // the notification is used up
    StopEvent().Wait(IDLE_MILLIS);
}

/// The size is asked only of names that are new: of a long queue most are known. An empty file is still being written,
/// and one that is gone was delivered since the directory was listed.
bool CRemoteAgent::AddFile(const char* pszName)
{
    if (m_pFiles->Contains(pszName))
        return false;
    const int64_t iSize = Platform::FileSize(Bex::PathBelow(m_directory.Path(), pszName).Text());
    return iSize >= 0 && static_cast<uint32_t>(iSize) != 0 && m_pFiles->AddPending(pszName);
}
