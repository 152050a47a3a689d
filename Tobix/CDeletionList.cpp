#include "Tobix/CDeletionList.h"

#include "Bex/CActivity.h"
#include "Bex/CFileException.h"
#include "Bex/CFileFind.h"
#include "Bex/CLogContext.h"
#include "Bex/FrozenLine.h"
#include "Bex/TextFunctions.h"
#include "Platform/CImmortal.h"
#include "Platform/Clock.h"
#include "Platform/Errors.h"

#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "Tobix/LocalAgent";
constexpr Bex::FrozenLine NOT_MOVED_LINE = 142;
constexpr Bex::FrozenLine NOT_REMOVED_LINE = 433;
constexpr uint64_t RETRY_MILLIS = 1000;
constexpr uint64_t REST_FOR_WORK = 9; ///< a tenth of the time goes into what may be in vain

/// It may also be the target's directory that nobody finds.
bool IsMissing(const Bex::CSimpleString& strPath)
{
    Platform::SFileIdentity identity;
    return !Platform::IdentityOf(strPath.Text(), identity) && Platform::LastError().iLibError == Platform::LIB_NO_ENTRY;
}

} // namespace

struct CDeletionList::SOrphans
{
    std::mutex lock;
    Entries entries;
};

CDeletionList::SOrphans& CDeletionList::Orphans()
{
    static Platform::CImmortal<SOrphans> orphans;
    return *orphans;
}

CDeletionList::~CDeletionList()
{
    SOrphans& orphans = Orphans();
    const std::lock_guard lock(orphans.lock);
    orphans.entries.splice(orphans.entries.end(), m_kept);
    orphans.entries.splice(orphans.entries.end(), m_entries);
}

void CDeletionList::Adopt(const Bex::CSimpleString& strErrorDirectory)
{
    Entries adopted;
    {
        SOrphans& orphans = Orphans();
        const std::lock_guard lock(orphans.lock);
        adopted.swap(orphans.entries);
    }
    for (SEntry& entry : adopted) {
        m_paths.insert(entry.pFile->Name().View());
        const std::string_view target = entry.strTarget.View();
        if (!target.empty())
            entry.strTarget = Bex::PathBelow(strErrorDirectory, std::string(target.substr(target.rfind('/') + 1)));
    }
    m_kept.splice(m_kept.end(), adopted);
}

void CDeletionList::SetFailedAside()
{
    for (auto next = m_kept.begin(); next != m_kept.end();) {
        const auto entry = next++;
        const Bex::CSimpleString strName = entry->pFile->Name();
        if (entry->strTarget.IsEmpty() || strName.View().ends_with(FAILED_SUFFIX))
            continue;
        try {
            entry->pFile->RenameIfStill(Bex::CSimpleString(strName) += FAILED_SUFFIX);
        } catch (const Bex::CFileException& exception) {
            Bex::LogCaught(exception, SOURCE_FILE, __LINE__);
            continue; // the next agent of this process still knows it
        }
        m_paths.erase(strName.View());
        m_kept.erase(entry);
    }
}

void CDeletionList::AdoptFailed(const Bex::CSimpleString& strQueue, const Bex::CSimpleString& strErrorDirectory)
{
    Bex::CFileFind find;
    if (!find.Open(Bex::JoinPath(strQueue, std::string("*.eml").append(FAILED_SUFFIX).c_str())))
        return;
    while (find.Next()) {
        const std::string_view name = find.Name();
        auto pFile = std::make_unique<CHeldMailFile>();
        pFile->LookUnlessTaken(Bex::PathBelow(strQueue, name));
        Add(std::move(pFile), Bex::PathBelow(strErrorDirectory, name.substr(0, name.size() - FAILED_SUFFIX.size())));
    }
}

void CDeletionList::Add(std::unique_ptr<CHeldMailFile> pFile, const Bex::CSimpleString& strTarget)
{
    Know(m_entries, std::move(pFile)).strTarget = strTarget;
}

CDeletionList::SEntry& CDeletionList::Know(Entries& entries, std::unique_ptr<CHeldMailFile> pFile)
{
    m_paths.insert(pFile->Name().View());
    entries.push_back({.pFile = std::move(pFile), .strTarget = {}});
    return entries.back();
}

bool CDeletionList::RemoveDelivered()
{
    const uint64_t nStarted = Platform::TickCount();
    bool bNewMail = false;
    if (HasKept() && nStarted >= m_nRetryTicks) {
        bNewMail = Try(m_kept);
        const uint64_t nNow = Platform::TickCount();
        m_nRetryTicks = nNow + RETRY_MILLIS + REST_FOR_WORK * (nNow - nStarted);
    }
    return Try(m_entries) || bNewMail;
}

bool CDeletionList::Try(Entries& entries)
{
    LetLeave(entries);
    return Settle(entries);
}

void CDeletionList::LetLeave(Entries& entries)
{
    for (SEntry& entry : entries) {
        Bex::CActivity::Alive();
        entry.outcome = Remove(entry);
        if (entry.outcome != EOutcome::Kept)
            entry.pFile->LetGo();
    }
}

bool CDeletionList::Settle(Entries& entries)
{
    bool bNewMail = false;
    for (auto next = entries.begin(); next != entries.end();) {
        const auto entry = next++;
        if (entry->outcome == EOutcome::Kept) {
            Keep(entries, entry);
            continue;
        }
        bNewMail |= entry->outcome == EOutcome::Replaced;
        m_paths.erase(entry->pFile->Name().View());
        entries.erase(entry);
    }
    return bNewMail;
}

std::vector<std::unique_ptr<CHeldMailFile>> CDeletionList::Forget(Entries& entries)
{
    std::vector<std::unique_ptr<CHeldMailFile>> files;
    for (SEntry& entry : std::exchange(entries, {})) {
        m_paths.erase(entry.pFile->Name().View());
        files.push_back(std::move(entry.pFile));
    }
    return files;
}

void CDeletionList::Keep(Entries& entries, Entries::iterator entry)
{
    if (&entries == &m_kept)
        return;
    if (m_kept.size() >= MOST_HELD)
        entry->pFile->LetGo();
    m_kept.splice(m_kept.end(), entries, entry);
}

CDeletionList::EOutcome CDeletionList::Remove(SEntry& entry)
{
    const Bex::CLogContext context(Bex::NameOf(entry.pFile->Name()));
    const bool bMove = !entry.strTarget.IsEmpty();
    try {
        const bool bWasStill = bMove ? entry.pFile->MoveIfStill(entry.strTarget) : entry.pFile->RemoveIfStill();
        return bWasStill ? EOutcome::Gone : EOutcome::Replaced;
    } catch (const Bex::CFileException& exception) {
        if (exception.LibError() == Platform::LIB_NO_ENTRY && IsMissing(entry.pFile->Name()))
            return EOutcome::Gone;
        if (!entry.bLogged)
            Bex::LogCaught(exception, SOURCE_FILE, bMove ? NOT_MOVED_LINE : NOT_REMOVED_LINE);
        entry.bLogged = true;
        return EOutcome::Kept;
    } catch (const std::bad_alloc&) { // tried again, with more memory
        return EOutcome::Kept;
    }
}
