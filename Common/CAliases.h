#pragma once

#include "Bex/CStorableStringHash.h"

#include <functional>
#include <memory>
#include <string_view>

class CAliasIndex;

/// Why a line of the table is dropped.
enum class EAliasFault {
    None,
    NotLocal,    ///< an address at a domain that is not local
    NoLocalPart, ///< nothing before the "@"
    Itself,      ///< it leads to itself
    NoUser       ///< a target without "@" that is no user, and leads to none by an earlier line
};

/// The alias table: addresses of the local domains, to other addresses or to users.
///
/// Lookups come from any thread; loading and pre-resolving belong to the main thread. Local domains and users must
/// be there before it is loaded. A table in use is replaced by one that was loaded and pre-resolved aside (TakeOver),
/// so that lookups neither wait nor see it half done. The locks of the domains and of the users are only ever taken
/// inside this one.
class CAliases : public Bex::CStorableStringHash
{
public:
    CAliases();
    ~CAliases() override;
    void SetModified() override;

    bool LookupAlias(std::string_view address, Bex::CSimpleString& strTarget);
    /// An alias target, a user name, or empty when the address leads nowhere.
    Bex::CSimpleString ResolveRecipient(std::string_view address) { return Step(address).strTarget; }
    /// The same, with the key of the entry that took the address; empty: none did.
    struct SStep
    {
        Bex::CSimpleString strKey;
        Bex::CSimpleString strTarget;
    };
    SStep Step(std::string_view address);
    /// Rewrites targets at local domains until they are users or addresses elsewhere; drops what leads nowhere. Some
    /// tables take a minute: false when ShallStop, which is asked all the while, has broken it off; nothing is changed
    /// then.
    bool PreresolveAliases(const std::function<bool()>& ShallStop = [] { return false; });
    void TakeOver(CAliases& fresh); ///< its content, which nobody else uses; and its file
    using CStorableStringHash::Saw;
    int GoodEntries() const { return m_iGood; }
    int FaultyEntries() const { return m_iFaulty; }

protected:
    bool OnLoadEntry(Bex::CSimpleString& strKey, Bex::CSimpleString& strValue) override;
    bool OnLoadBegin() override;
    /// For who wants to tell: a line that Load drops, with the value that it had; an entry that leads nowhere, which
    /// PreresolveAliases removes.
    virtual void OnFaulty(EAliasFault, const Bex::CSimpleString&, const Bex::CSimpleString&) {}
    virtual void OnRemoved(const Bex::CSimpleString&) {}

private:
    EAliasFault FaultOf(const Bex::CSimpleString& strKey, Bex::CSimpleString& strValue) const;
    CAliasIndex& Index(); ///< hold the lock as long as it is used

    std::unique_ptr<CAliasIndex> m_pIndex; ///< guarded by the lock; null: the entries have changed
    int m_iGood = 0;
    int m_iFaulty = 0;
};
