#include "Tobix/ThreadControl.h"

#include "Bex/CActivity.h"
#include "Bex/Log.h"
#include "Platform/Errors.h"

#include <algorithm>

namespace ThreadControl {

namespace {

constexpr unsigned POLL_MILLIS = 500;

unsigned AtMost(unsigned dwMillis, const Platform::CWaitLimit& limit)
{
    return static_cast<unsigned>(std::min<uint64_t>(dwMillis, limit.MillisLeft()));
}

void WaitForEnd(const Bex::CThread& thread, const Platform::CWaitLimit& limit, const std::function<void()>& Report)
{
    do
        Report();
    while (!thread.HasFinished(AtMost(POLL_MILLIS, limit)) && limit.HasTimeLeft());
    Report();
}

} // namespace

bool Start(Bex::CThread& thread, const char* pszName)
{
    if (!thread.Start(pszName)) {
        Bex::LogError(Bex::MainLog(), "could not start %s, error 0x%08X", pszName, Platform::LastError().dwSysError);
        return false;
    }
    Bex::LogNotice(Bex::MainLog(), "%s (id %04X) started", pszName, thread.Id());
    return true;
}

bool Stop(std::unique_ptr<Bex::CThread> pThread, const char* pszName, const Platform::CWaitLimit& limit,
          const std::function<void()>& Report)
{
    if (!pThread) {
        Bex::LogError(Bex::MainLog(), "%s not instantiated", pszName);
        return false;
    }
    const Bex::CActivity::CStep step("stops %s", pszName);
    const unsigned dwId = pThread->Id();
    if (!pThread->Stop(AtMost(Bex::CThread::STOP_WAIT_MILLIS, limit))) {
        Bex::LogWarning(Bex::MainLog(), "stopping %s (id %04X) pending", pszName, dwId);
        WaitForEnd(*pThread, limit, Report);
        if (!pThread->HasFinished()) {
            Bex::LogError(Bex::MainLog(), "terminating %s (id %04X)", pszName, dwId);
            pThread->Terminate();
        }
    }
    Bex::CThread::Destroy(std::move(pThread));
    Bex::LogNotice(Bex::MainLog(), "%s (id %04X) stopped", pszName, dwId);
    return true;
}

} // namespace ThreadControl
