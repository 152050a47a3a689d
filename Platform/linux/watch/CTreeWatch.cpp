#include "Platform/CTreeWatch.h"

#include "Platform/CDirectoryListing.h"
#include "Platform/CNativeThread.h"
#include "Platform/Clock.h"
#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/Result.h"
#include "Platform/linux/watch/CTreeRecords.h"
#include "Platform/linux/watch/CWatchedTree.h"
#include "Platform/linux/watch/NotifyQueue.h"

#include <cerrno>
#include <cstdint>
#include <mutex>
#include <utility>

namespace Platform {

namespace {

using SDirectory = CWatchedTree::SDirectory;

/// The kernel queues the two halves of a rename one right after the other, but not as one.
constexpr unsigned LONGEST_RENAME = 20; ///< milliseconds
/// Between two looks at a queue in which much happens: waking up for every event costs more than the event itself. Of
/// as many as come meanwhile the kernel's queue holds many times the number.
constexpr unsigned NAP = 20; ///< milliseconds

class CNotifyQueue : public IWaitable
{
public:
    CDescriptor m_queue;
    int WaitDescriptor() const override { return m_queue.Get(); }
};

/// The first half of a rename whose second half has not been seen. Its strings keep their memory.
struct SOpenRename
{
    bool bOpen = false;
    bool bDirectory = false;
    uint32_t dwCookie = 0;
    uint64_t ui64Since = 0; ///< tick count
    int iParentWatch = -1;
    std::string strLeaf;
    std::string strName;
};

} // namespace

/// Everything but the two events and the thread is used under the lock, by the pump thread and by Fetch, which empties
/// the kernel's queue itself so that it never answers behind what has happened.
struct CTreeWatch::SState
{
    SState(CEventHandle& ready, size_t nBufferBytes, Filter filter, std::string_view leftOut)
        : records(ready, nBufferBytes, std::move(filter)), strLeftOut(leftOut)
    {}
    ~SState();
    bool Open(const char* pszRoot);
    bool Fetch(std::vector<STreeRecord>& fetched, SError& loss);

    bool HasRoot()
    {
        const std::lock_guard lock(mutex);
        return !bRootGone;
    }

    void Pump();
    bool Drain(); ///< true when there was something
    void Take(const inotify_event& event, std::string_view strLeaf);
    void TakeOfDirectoryItself(SDirectory& directory, uint32_t dwMask);
    void OnAppeared(SDirectory& parent, std::string_view strLeaf, bool bDirectory);
    void OnMovedFrom(const SDirectory& parent, std::string_view strLeaf, uint32_t dwCookie, bool bDirectory);
    void OnMovedTo(SDirectory& parent, std::string_view strLeaf, uint32_t dwCookie, bool bDirectory);
    void FollowDirectory(SDirectory& newParent, std::string_view strNewLeaf);
    void SettleRename();
    void Forget(const SDirectory& parent, std::string_view strLeaf);

    void AddDirectory(SDirectory& parent, std::string_view strLeaf, bool bReport);
    void Scan(SDirectory& directory, bool bReport);
    void Rebuild();

    std::mutex mutex;
    CNotifyQueue queue;
    CWatchedTree tree;
    CTreeRecords records;
    const std::string strLeftOut; ///< name of directories that are not watched
    std::string strName;          ///< of the event in hand, relative to the root
    SOpenRename rename;
    bool bScanningAll = false;
    bool bOutOfStep = false; ///< the tree has to be built anew
    bool bMissed = false;    ///< something below a directory that has moved could not be watched
    bool bRootGone = false;
    bool bStop = false;

    CEventHandle wake; ///< of the pump thread
    std::unique_ptr<CNativeThread> pThread;
};

CTreeWatch::SState::~SState()
{
    if (pThread == nullptr)
        return;
    {
        const std::lock_guard lock(mutex);
        bStop = true;
    }
    wake.Set();
    pThread->Join();
}

bool CTreeWatch::SState::Open(const char* pszRoot)
{
    if (!wake.IsValid())
        return false;
    queue.m_queue = CDescriptor(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!queue.m_queue.IsValid() || !tree.Open(queue.m_queue.Get(), pszRoot))
        return FailWithErrno();
    bScanningAll = true;
    Scan(tree.Root(), false);
    bScanningAll = false;
    pThread = CNativeThread::Create([](void* pState) { static_cast<SState*>(pState)->Pump(); }, this);
    return pThread != nullptr;
}

bool CTreeWatch::SState::Fetch(std::vector<STreeRecord>& fetched, SError& loss)
{
    const std::lock_guard lock(mutex);
    Drain();
    if (rename.bOpen)
        wake.Set(); // the pump settles it, and may have slept through its coming
    return records.Take(fetched, loss);
}

void CTreeWatch::SState::Pump()
{
    bool bNap = false;
    for (unsigned dwPatience = INFINITE;;) {
        const EWaitResult result = bNap ? WaitAny({&wake}, NAP) : WaitAny({&queue, &wake}, dwPatience);
        const std::lock_guard lock(mutex);
        wake.Reset();
        if (bStop)
            return;
        bNap = Drain();
        if (result == EWaitResult::Failed)
            return records.Lose();
        if (rename.bOpen && TickCount() - rename.ui64Since >= LONGEST_RENAME) // steady traffic never times out
            SettleRename();
        dwPatience = rename.bOpen ? LONGEST_RENAME : INFINITE;
    }
}

bool CTreeWatch::SState::Drain()
{
    bool bAny = false;
    const auto take = [&](const inotify_event& event, std::string_view strLeaf) {
        bAny = true;
        Take(event, strLeaf);
    };
    if (!DrainNotifications(queue.m_queue.Get(), take))
        records.Lose();
    if (bOutOfStep)
        Rebuild();
    return bAny;
}

void CTreeWatch::SState::Take(const inotify_event& event, std::string_view strLeaf)
{
    bOutOfStep = bOutOfStep || (event.mask & IN_Q_OVERFLOW) != 0;
    if (bOutOfStep) // what the tree says of this event is not true any more
        return;
    // What happens to the old name of a rename, and the next rename, come after it. Settling may forget directories.
    const bool bSecondHalf = (event.mask & IN_MOVED_TO) != 0 && event.cookie == rename.dwCookie;
    const bool bOldName = rename.iParentWatch == event.wd && rename.strLeaf == strLeaf;
    if (!bSecondHalf && (bOldName || (event.mask & IN_MOVED_FROM) != 0))
        SettleRename();
    SDirectory* pParent = tree.Find(event.wd);
    if (pParent == nullptr)
        return;
    if (strLeaf.empty())
        return TakeOfDirectoryItself(*pParent, event.mask);

    tree.RelativeName(*pParent, strLeaf, strName);
    const bool bDirectory = (event.mask & IN_ISDIR) != 0;
    if ((event.mask & IN_CREATE) != 0)
        OnAppeared(*pParent, strLeaf, bDirectory);
    else if ((event.mask & IN_MOVED_FROM) != 0)
        OnMovedFrom(*pParent, strLeaf, event.cookie, bDirectory);
    else if ((event.mask & IN_MOVED_TO) != 0)
        OnMovedTo(*pParent, strLeaf, event.cookie, bDirectory);
    else if ((event.mask & IN_CLOSE_WRITE) != 0)
        records.Keep(ETreeAction::Modified, strName);
    else if ((event.mask & IN_DELETE) != 0) {
        records.Keep(ETreeAction::Removed, strName);
        if (bDirectory)
            Forget(*pParent, strLeaf);
    }
}

void CTreeWatch::SState::TakeOfDirectoryItself(SDirectory& directory, uint32_t dwMask)
{
    if (&directory == &tree.Root()) {
        if (!std::exchange(bRootGone, true))
            records.Lose(ErrorFromErrno(ENOENT));
        return;
    }
    if ((dwMask & IN_UNMOUNT) != 0)
        records.Lose();
    if ((dwMask & IN_IGNORED) != 0)
        tree.Forget(directory);
}

void CTreeWatch::SState::OnAppeared(SDirectory& parent, std::string_view strLeaf, bool bDirectory)
{
    records.Keep(ETreeAction::Added, strName);
    if (bDirectory)
        AddDirectory(parent, strLeaf, true);
}

void CTreeWatch::SState::OnMovedFrom(const SDirectory& parent, std::string_view strLeaf, uint32_t dwCookie,
                                     bool bDirectory)
{
    rename.bOpen = true;
    rename.bDirectory = bDirectory;
    rename.dwCookie = dwCookie;
    rename.ui64Since = TickCount();
    rename.iParentWatch = parent.iWatch;
    rename.strLeaf = strLeaf;
    rename.strName = strName;
}

void CTreeWatch::SState::OnMovedTo(SDirectory& parent, std::string_view strLeaf, uint32_t dwCookie, bool bDirectory)
{
    if (!rename.bOpen || rename.dwCookie != dwCookie)
        return OnAppeared(parent, strLeaf, bDirectory);
    rename.bOpen = false;
    records.KeepRename(rename.strName, strName);
    if (bDirectory)
        FollowDirectory(parent, strLeaf);
}

void CTreeWatch::SState::FollowDirectory(SDirectory& newParent, std::string_view strNewLeaf)
{
    const SDirectory* pOldParent = tree.Find(rename.iParentWatch);
    SDirectory* pMoved = pOldParent != nullptr ? tree.Child(*pOldParent, rename.strLeaf) : nullptr;
    if (pMoved == nullptr)
        return AddDirectory(newParent, strNewLeaf, true);
    tree.Move(*pMoved, newParent, strNewLeaf);
    if (bMissed || !tree.IsInPlace(*pMoved))
        bOutOfStep = true;
}

/// The second half does not come: the file has left the tree.
void CTreeWatch::SState::SettleRename()
{
    if (!std::exchange(rename.bOpen, false))
        return;
    records.Keep(ETreeAction::Removed, rename.strName);
    const SDirectory* pParent = tree.Find(rename.iParentWatch);
    if (rename.bDirectory && pParent != nullptr)
        Forget(*pParent, rename.strLeaf);
}

void CTreeWatch::SState::Forget(const SDirectory& parent, std::string_view strLeaf)
{
    if (SDirectory* pDirectory = tree.Child(parent, strLeaf); pDirectory != nullptr)
        tree.Forget(*pDirectory);
}

void CTreeWatch::SState::AddDirectory(SDirectory& parent, std::string_view strLeaf, bool bReport)
{
    if (strLeaf == strLeftOut)
        return;
    SDirectory* pDirectory = nullptr;
    switch (tree.Add(parent, strLeaf, pDirectory)) {
    case CWatchedTree::EAdded::New:
        return Scan(*pDirectory, bReport);
    case CWatchedTree::EAdded::Known:
        return;
    case CWatchedTree::EAdded::Elsewhere: // also a directory that is mounted in two places
        bOutOfStep = bOutOfStep || !bScanningAll;
        return;
    case CWatchedTree::EAdded::Gone:
        bMissed = bMissed || !tree.IsInPlace(parent);
        return;
    case CWatchedTree::EAdded::Failed:
        return records.Lose(ErrorFromErrno(errno));
    }
}

/// Watched first and listed then: what comes in between is told twice rather than never.
void CTreeWatch::SState::Scan(SDirectory& directory, bool bReport)
{
    CDirectoryListing listing;
    if (!listing.Read(tree.FullPath(directory, ""))) {
        if (LastError().iLibError != LIB_NO_ENTRY)
            records.Lose(LastError());
        return;
    }
    std::string strFound;
    for (size_t nIndex = 0; nIndex < listing.Count(); ++nIndex) {
        const SDirectoryEntry entry = listing.At(nIndex);
        if (bReport) {
            tree.RelativeName(directory, entry.pszName, strFound);
            records.Keep(ETreeAction::Added, strFound);
        }
        if (entry.bDirectory)
            AddDirectory(directory, entry.pszName, bReport);
    }
}

/// After a gap it is not known what happened, only what to watch from now on.
void CTreeWatch::SState::Rebuild()
{
    records.Lose();
    bMissed = false;
    rename.bOpen = false;
    bScanningAll = true;
    const std::vector<int> before = tree.Clear();
    Scan(tree.Root(), false);
    tree.StopWatching(before);
    bScanningAll = false;
    bOutOfStep = false;
}

CTreeWatch::CTreeWatch() = default;

CTreeWatch::~CTreeWatch() { Close(); }

bool CTreeWatch::Open(const char* pszRoot, size_t nBufferBytes, Filter filter, std::string_view leftOut)
{
    Close();
    if (!m_ready.IsValid())
        return false;
    m_pState = std::make_unique<SState>(m_ready, nBufferBytes, std::move(filter), leftOut);
    if (m_pState->Open(pszRoot))
        return true;
    Close();
    return false;
}

void CTreeWatch::Close()
{
    m_pState.reset();
    if (m_ready.IsValid())
        m_ready.Reset();
}

bool CTreeWatch::IsOpen() const { return m_pState != nullptr; }

bool CTreeWatch::Fetch(std::vector<STreeRecord>& records, SError& loss)
{
    records.clear();
    return m_pState == nullptr || m_pState->Fetch(records, loss);
}

bool CTreeWatch::HasRoot() const { return m_pState != nullptr && m_pState->HasRoot(); }

int CTreeWatch::WaitDescriptor() const { return m_ready.WaitDescriptor(); }

} // namespace Platform
