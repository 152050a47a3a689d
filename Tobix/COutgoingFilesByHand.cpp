// How an administrator looks into COutgoingFiles and steers it.

#include "Platform/Clock.h"
#include "Tobix/COutgoingFiles.h"

namespace {

constexpr uint64_t MILLIS_PER_SECOND = 1000;

} // namespace

void COutgoingFiles::PutAside(SEntry& entry, EAside why)
{
    m_nSetAside += entry.aside ? 0 : 1;
    entry.aside = why;
}

void COutgoingFiles::TakeUp(SEntry& entry)
{
    m_nSetAside -= entry.aside ? 1 : 0;
    entry.aside.reset();
}

COutgoingFiles::EState COutgoingFiles::StateOf(const SEntry& entry) const
{
    switch (entry.list) {
    case PENDING:
        return EState::Pending;
    case RETRY_DUE:
        return EState::RetryDue;
    case RETRY_WAIT:
        return EState::RetryWait;
    case HELD_BACK:
        return EState::HeldBack;
    default:
        break;
    }
    if (!entry.aside)
        return EState::Sending;
    return *entry.aside == EAside::Delivered ? EState::Delivered : EState::NotDisposedOf;
}

std::optional<COutgoingFiles::SMailState> COutgoingFiles::Find(std::string_view name) const
{
    const Bex::CScopedLock lock(m_lock);
    const auto found = m_index.find(name);
    if (found == m_index.end())
        return std::nullopt;
    const SEntry& entry = *found->second;
    return SMailState{StateOf(entry), entry.nAttempts,
                      static_cast<int64_t>((Platform::TickCount() - entry.nSinceTicks) / MILLIS_PER_SECOND)};
}

/// Of a name that no thread has in its hands; with the lock held.
COutgoingFiles::EAnswer COutgoingFiles::FindFree(std::string_view name, CEntries::iterator& entry) const
{
    const auto found = m_index.find(name);
    if (found == m_index.end())
        return EAnswer::Unknown;
    entry = found->second;
    const bool bBusy = entry->list == IN_PROGRESS && entry->aside != EAside::NotDisposedOf;
    return bBusy ? EAnswer::InDelivery : EAnswer::Done;
}

COutgoingFiles::EAnswer COutgoingFiles::RetryNow(std::string_view name) { return TakeUpNow(name, false); }

COutgoingFiles::EAnswer COutgoingFiles::ReturnNow(std::string_view name) { return TakeUpNow(name, true); }

COutgoingFiles::EAnswer COutgoingFiles::TakeUpNow(std::string_view name, bool bReturn)
{
    const Bex::CScopedLock lock(m_lock);
    CEntries::iterator found;
    if (const EAnswer answer = FindFree(name, found); answer != EAnswer::Done)
        return answer;
    SEntry& entry = *found;
    entry.bReturn |= bReturn;
    if (entry.list == IN_PROGRESS || entry.list == RETRY_WAIT) {
        TakeUp(entry);
        Queue(found, entry.list == IN_PROGRESS ? PENDING : RETRY_DUE);
        TellWork();
    }
    return EAnswer::Done;
}

bool COutgoingFiles::IsToReturn(std::string_view name) const
{
    const Bex::CScopedLock lock(m_lock);
    const auto found = m_index.find(name);
    return found != m_index.end() && found->second->bReturn;
}

COutgoingFiles::EAnswer COutgoingFiles::Claim(std::string_view name)
{
    const Bex::CScopedLock lock(m_lock);
    CEntries::iterator found;
    if (const EAnswer answer = FindFree(name, found); answer != EAnswer::Done)
        return answer;
    SEntry& entry = *found;
    LeaveForGood(entry);
    Move(found, IN_PROGRESS);
    PutAside(entry, EAside::NotDisposedOf);
    TellWork();
    return EAnswer::Done;
}
