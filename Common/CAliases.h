#pragma once

#include "Bex/CStorableStringHash.h"

#include <string_view>

/// The alias table: addresses of the local domains, to other addresses or to users.
///
/// Lookups come from any thread; loading and pre-resolving belong to the main thread. Local domains and users must
/// be there before it is loaded.
class CAliases : public Bex::CStorableStringHash
{
public:
    ~CAliases() override = default;

    bool LookupAlias(std::string_view address, Bex::CSimpleString& strTarget);
    /// An alias target, a user name, or empty when the address leads nowhere.
    Bex::CSimpleString ResolveRecipient(std::string_view address);
    /// Rewrites targets at local domains until they are users or addresses elsewhere; drops what leads nowhere.
    void PreresolveAliases();
    int GoodEntries() const { return m_iGood; }
    int FaultyEntries() const { return m_iFaulty; }

protected:
    bool OnLoadEntry(Bex::CSimpleString& strKey, Bex::CSimpleString& strValue) override;
    bool OnLoadBegin() override;

private:
    int m_iGood = 0;
    int m_iFaulty = 0;
};
