#pragma once

#include "Bex/CConfigFile.h"
#include "Common/CSmartHost.h"
#include "Platform/CWaitLimit.h"

/// The relay hosts to use instead of a domain's mail exchangers. Shared between threads.
class CSmartHosts : public Bex::CConfigFile
{
public:
    CSmartHosts() : CConfigFile(Bex::MOST_TABLE_BYTES) {}
    ~CSmartHosts() override = default;

    /// The most specific entry that matches.
    struct SMatch
    {
        Bex::CSimpleString strKey; ///< empty: none does
        Bex::CSimpleString strHosts;
    };
    SMatch Match(const Bex::CSimpleString& strSenderDomain, const Bex::CSimpleString& strRecipientDomain) const;
    /// The targets of the most specific key that matches; none when no key does or no host of it resolves. May ask
    /// the resolver.
    void FindSmartHosts(const Bex::CSimpleString& strSenderDomain, const Bex::CSimpleString& strRecipientDomain,
                        const Platform::CWaitLimit& limit, CTargetList& targets) const;
};
