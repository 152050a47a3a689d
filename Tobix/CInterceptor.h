#pragma once

#include "Bex/CStorableStringList.h"
#include "Common/CMail.h"
#include "Tobix/CCopyGroup.h"

/// Keeps copies of the mail that listed addresses send or receive, each in a directory named for the address.
///
/// Owned by the local agent and used on its thread, but for ReloadIfChanged, which belongs to the main thread and
/// meets the lookups on the list's lock. A failure is logged and never changes the delivery.
class CInterceptor
{
public:
    /// Loads the address list; a missing one lists nobody.
    CInterceptor(const Bex::CSimpleString& strListFile, const Bex::CSimpleString& strDirectory);

    bool IsListed(const Bex::CSimpleString& strAddress) const; ///< lower-cases the address; entries count as written
    /// The kind is "sent" or "received".
    void Intercept(const CMail& mail, const Bex::CSimpleString& strAddress, const char* pszKind, CCopyGroup& group);
    bool ReloadIfChanged();

private:
    Bex::CSimpleString DirectoryOf(const Bex::CSimpleString& strAddress) const;
    bool Store(const CMail& mail, const Bex::CSimpleString& strAddress, const char* pszKind, CCopyGroup& group);

    Bex::CStorableStringList m_addresses{true};
    Bex::CSimpleString m_strDirectory;
};

/// A text of the mail as a part of a file name: what could leave the directory or is not printable becomes "_", and
/// a text too long for a name is cut and ends in its digest. Any thread.
Bex::CSimpleString SafeFileNamePart(std::string_view text);
