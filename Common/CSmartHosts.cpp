#include "Common/CSmartHosts.h"

#include "Bex/TextFunctions.h"
#include "Common/SmartHostEntry.h"
#include "Common/TargetResolution.h"

#include <algorithm>

namespace {

bool MatchesDomain(std::string_view pattern, std::string_view domain)
{
    return !domain.empty() && Bex::WildcardMatchCase(domain, pattern);
}

bool MatchesKey(std::string_view key, std::string_view senderDomain, std::string_view recipientDomain)
{
    if (!key.starts_with('<') && !key.starts_with('>'))
        return MatchesDomain(key, recipientDomain);
    const std::string_view pattern = key.substr(1);
    return pattern.empty() || MatchesDomain(pattern, key.front() == '<' ? senderDomain : recipientDomain);
}

} // namespace

CSmartHosts::SMatch CSmartHosts::Match(const Bex::CSimpleString& strSenderDomain,
                                       const Bex::CSimpleString& strRecipientDomain) const
{
    ptrdiff_t nMostDots = -1;
    SMatch match;
    Bex::CScopedLock lock(LockObject());
    for (CIterator it(*this); it; ++it) {
        const std::string_view key = it->key;
        const ptrdiff_t nDots = std::count(key.begin(), key.end(), '.');
        if (nDots > nMostDots && MatchesKey(key, strSenderDomain, strRecipientDomain)) {
            nMostDots = nDots;
            match = {it->key, it->value};
        }
    }
    return match;
}

void CSmartHosts::FindSmartHosts(const Bex::CSimpleString& strSenderDomain,
                                 const Bex::CSimpleString& strRecipientDomain, const Platform::CWaitLimit& limit,
                                 CTargetList& targets) const
{
    targets.RemoveAll();
    Bex::CList<Bex::CSimpleString> entries(false);
    Bex::Tokenize(Match(strSenderDomain, strRecipientDomain).strHosts, ",", entries, false);
    for (const Bex::CSimpleString& strEntry : entries) {
        const SSmartHostEntry entry = ParseSmartHostEntry(strEntry);
        ResolveHostTargets(targets, entry.strHost, entry.wPort, entry.strUser, entry.strPassword, entry.mode, limit);
    }
}
