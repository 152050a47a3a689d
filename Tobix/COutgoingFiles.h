#pragma once

#include "Bex/CCriticalSection.h"
#include "Bex/CEvent.h"
#include "Bex/CSimpleString.h"

#include <array>
#include <list>
#include <string_view>
#include <unordered_map>

/// The names of the outgoing mail files, each in one of four lists: pending (found, not yet taken), retry-due (to be
/// tried again), retry-wait (failed, waiting for the next release) and in progress (in the hands of a delivery thread).
///
/// Shared by the remote agent and the delivery threads, under a lock of its own and for as long as one of them lives.
/// The lists keep their order; finding a name does not depend on their length. Names are compared byte for byte.
class COutgoingFiles
{
public:
    bool AddPending(std::string_view name); ///< false when the name is in one of the lists
    bool Contains(std::string_view name) const;
    /// The next name to deliver, pending ones first; it is in progress then. False when there is none.
    bool Take(Bex::CSimpleString& strName);
    void RetryLater(std::string_view name);     ///< to retry-wait, wherever it was
    void FinishDelivery(std::string_view name); ///< forgets a name that is in progress
    void ReleaseRetries();                      ///< all of retry-wait, in order, to retry-due
    bool HasPending() const;

    const Platform::IWaitable& WorkWaitable() const { return m_work.Waitable(); } ///< signalled while Take gives one

private:
    enum EList { PENDING, RETRY_DUE, RETRY_WAIT, IN_PROGRESS, LISTS };
    struct SEntry
    {
        Bex::CSimpleString strName;
        EList list;
    };
    using CEntries = std::list<SEntry>;

    void Move(CEntries::iterator entry, EList list);
    void TellWork();

    mutable Bex::CCriticalSection m_lock;
    std::array<CEntries, LISTS> m_lists;
    std::unordered_map<std::string_view, CEntries::iterator> m_index; ///< keys are the entries' own names
    Bex::CEvent m_work;
    bool m_bWork = false; ///< the event is set
};
