#pragma once

#include "Bex/CCriticalSection.h"
#include "Bex/CEvent.h"
#include "Bex/CSimpleString.h"

#include <array>
#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

/// The names of the outgoing mail files, each in one of these lists: pending (found, not yet taken), retry-due (to be
/// tried again), retry-wait (failed, waiting for the next release), in progress (in the hands of a delivery thread) and
/// held back (its turn has come, but enough threads are at its domain; it keeps its place).
///
/// Shared by both agents and the delivery threads, under a lock of its own and for as long as one of them lives. The
/// lists keep their order; no operation depends on their length but the release of retries and the first look at a name
/// whose domain is full. Names are compared byte for byte, and so are domains.
class COutgoingFiles
{
public:
    /// So many threads at a domain at once (0: any number), whether mail is taken along, and whether it is kept which
    /// mail from the queue each one was.
    explicit COutgoingFiles(unsigned nPerDomain = 0, bool bRoutes = false, bool bOrigins = false)
        : m_nPerDomain(nPerDomain), m_bRoutes(bRoutes), m_bOrigins(bOrigins)
    {}

    bool AddPending(std::string_view name); ///< false when the name is in one of the lists
    bool Contains(std::string_view name) const;
    /// The next name to deliver, pending ones first; it is in progress then. False when there is none.
    bool Take(Bex::CSimpleString& strName);
    void RetryLater(std::string_view name);     ///< to retry-wait, wherever it was
    void FinishDelivery(std::string_view name); ///< forgets a name that is in progress
    /// Stays in progress, but no thread is at its domain any more. What has not been delivered may be taken up again
    /// by hand.
    enum class EAside { Delivered, NotDisposedOf };
    void SetAside(std::string_view name, EAside why = EAside::Delivered);
    void ReleaseRetries(); ///< all of retry-wait, in order, to retry-due
    bool HasPending() const;
    struct SCounts
    {
        size_t nAll;
        size_t nSending; ///< in the hands of a thread
        size_t nWaiting; ///< for the next release of retries
    };
    SCounts Counts() const;

    /// For who steers the daemon by hand. A name in delivery is left alone.
    enum class EState { Pending, RetryDue, RetryWait, Sending, HeldBack, Delivered, NotDisposedOf };
    struct SMailState
    {
        EState state;
        unsigned nAttempts; ///< that failed, since the start
        int64_t iSecondsKnown;
    };
    std::optional<SMailState> Find(std::string_view name) const; ///< nothing: not known
    enum class EAnswer { Done, Unknown, InDelivery };
    EAnswer RetryNow(std::string_view name);  ///< before all others but the new ones; what waits already does anyway
    EAnswer ReturnNow(std::string_view name); ///< to its sender, as soon as a thread can
    bool IsToReturn(std::string_view name) const;
    /// No thread takes it until it is given back, by FinishDelivery when its file is gone, else by RetryNow.
    EAnswer Claim(std::string_view name);
    std::string OriginOf(std::string_view name) const; ///< empty: not known
    int64_t SecondsKnown(std::string_view name) const; ///< whatever the time was set to meanwhile; 0: not known

    /// Tells the domain and the route (RouteOf in SMTPc/FindTargets.h) of a name that will be found, so that nobody has
    /// to open the file for it, and the mail from the queue that it was. What nobody asks for is not kept.
    void Announce(std::string_view name, std::string_view domain, std::string_view route = {},
                  std::string_view origin = {});
    void Withdraw(std::string_view name);
    bool WantsDomain(std::string_view name) const; ///< of a name in progress, before anything is done with it
    /// Tells it; an empty one has no limit. False: the name is another thread's later.
    bool EnterDomain(std::string_view name, std::string_view domain, std::string_view route = {});

    bool KnowsRoutes() const { return m_bRoutes; }
    Bex::CSimpleString RouteOf(std::string_view name) const; ///< empty: not known
    /// The first name that waits for the route, or the next one of all when nobody has looked where that goes. It is in
    /// progress then, and takes the other name's place at their domain. False when there is none, or no place.
    bool TakeAlong(std::string_view name, std::string_view route, Bex::CSimpleString& strNext);
    /// Untried: its place at the domain to the name that it had it from, and itself to where it was taken from, or
    /// behind all others if they had waited for longer.
    void GiveBack(std::string_view name, std::string_view from);

    const Platform::IWaitable& WorkWaitable() const { return m_work.Waitable(); } ///< signalled while Take gives one

private:
    enum EList { PENDING, RETRY_DUE, RETRY_WAIT, IN_PROGRESS, HELD_BACK, LISTS };
    using CTurn = std::pair<EList, uint64_t>; ///< pending before retry-due, then by number
    struct SDomain;
    struct SRoute;
    struct SEntry
    {
        Bex::CSimpleString strName;
        EList list;
        uint64_t nSinceTicks;
        CTurn turn{};
        SDomain* pDomain = nullptr;                 ///< null: unknown, or nobody asks
        SRoute* pRoute = nullptr;                   ///< likewise
        bool bPlace = false;                        ///< counts as a thread at its domain
        unsigned nAttempts = 0;                     ///< that failed
        std::optional<EAside> aside = std::nullopt; ///< of one that is in progress, but in no thread's hands
        bool bReturn = false;
        std::string strOrigin{};
    };
    using CEntries = std::list<SEntry>;
    struct SDomain
    {
        std::string strName;
        unsigned nThreads = 0;
        size_t nNames = 0; ///< with none it goes
        std::map<CTurn, CEntries::iterator> heldBack;
        std::optional<CTurn> ready; ///< where it stands in m_ready
    };
    struct SRoute
    {
        std::string strName;
        size_t nNames = 0;                           ///< with none it goes
        std::map<CTurn, CEntries::iterator> waiting; ///< pending, to be tried again, or held back
    };
    struct SAnnounced
    {
        std::string strDomain;
        std::string strRoute;
        std::string strOrigin;
    };

    CEntries::iterator Add(std::string_view name, EList list);
    bool FindInProgress(std::string_view name, CEntries::iterator& entry);
    void Move(CEntries::iterator entry, EList list);
    EAnswer FindFree(std::string_view name, CEntries::iterator& entry) const;
    EAnswer TakeUpNow(std::string_view name, bool bReturn);
    void PutAside(SEntry& entry, EAside why);
    void TakeUp(SEntry& entry);
    EState StateOf(const SEntry& entry) const;
    void Queue(CEntries::iterator entry, EList list);
    void SetDomain(SEntry& entry, std::string_view domain);
    void SetRoute(SEntry& entry, std::string_view route);
    void Enlist(CEntries::iterator entry);
    static void Unlist(const SEntry& entry);
    bool NextAlong(std::string_view route, CEntries::iterator& entry);
    bool IsFull(const SDomain& domain) const { return domain.nThreads >= m_nPerDomain; }
    bool StartUnlessFull(CEntries::iterator entry);
    void Leave(SEntry& entry);
    static void LeavePlace(SEntry& entry);
    void LeaveForGood(SEntry& entry);
    void GiveUpPlace(const SEntry& entry);
    void TellReady(SDomain& domain);
    bool Next(CEntries::iterator& entry);
    void TellWork();

    mutable Bex::CCriticalSection m_lock;
    std::array<CEntries, LISTS> m_lists;
    std::unordered_map<std::string_view, CEntries::iterator> m_index; ///< keys are the entries' own names
    Bex::CEvent m_work;
    bool m_bWork = false; ///< the event is set

    const unsigned m_nPerDomain;
    const bool m_bRoutes;
    const bool m_bOrigins;
    uint64_t m_nTurns = 0;
    size_t m_nSetAside = 0;
    size_t m_nPendingHeldBack = 0;
    std::unordered_map<std::string, SAnnounced> m_announced; ///< by name
    std::unordered_map<std::string, SDomain> m_domains;
    std::unordered_map<std::string, SRoute> m_routes;
    std::map<CTurn, SDomain*> m_ready; ///< domains with a thread to spare, by the first name that is held back there
};
