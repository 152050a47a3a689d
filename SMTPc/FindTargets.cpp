#include "SMTPc/FindTargets.h"

#include "Common/Globals.h"
#include "Common/IsValidAddress.h"
#include "Common/NormalizeAddress.h"
#include "Common/ReportText.h"
#include "Common/TargetResolution.h"
#include "SMTPc/CSMTPException.h"

namespace {

constexpr char SOURCE_FILE[] = "SMTPc/SMTPSend";
constexpr uint64_t LONGEST_RESOLUTION = 40'000; // milliseconds, of smart hosts and exchangers together

void ResolveDomain(const Bex::CSimpleString& strDomain, const Platform::CWaitLimit& limit, CTargetList& targets)
{
    const char* const pszDomain = strDomain.Text();
    switch (ResolveTargets(targets, strDomain, BackupDomains().ContainsExact(strDomain), limit)) {
    case EResolution::RetryLater:
        throw CSMTPTemporaryException(
            SOURCE_FILE, __LINE__,
            Bex::CSimpleString::Formatted("MX resolution for domain '%s' failed, please retry later", pszDomain));
    case EResolution::NullMX:
        throw CSMTPPermanentException(SOURCE_FILE, __LINE__,
                                      Bex::CSimpleString::Formatted("domain '%s' is not used for mail communication %s",
                                                                    pszDomain, ReportText::NULL_MX));
    default:
        break;
    }
    if (targets.IsEmpty())
        throw CSMTPTemporaryException(
            SOURCE_FILE, __LINE__,
            Bex::CSimpleString::Formatted("MX resolution for domain '%s' failed, no valid MX returned", pszDomain));
}

} // namespace

std::optional<Bex::CSimpleString> MaskOf(const Bex::CSimpleString& strSender)
{
    Bex::CSimpleString strMask;
    if (strSender.IsEmpty() || !Masquerading().Lookup(NormalizeAddress(strSender), strMask))
        return std::nullopt;
    return strMask;
}

void CheckAddresses(const Bex::CSimpleString& strSender, const Bex::CSimpleString& strRecipient)
{
    if (!strSender.IsEmpty() && !IsValidAddress(strSender))
        throw CSMTPPermanentException(
            SOURCE_FILE, __LINE__,
            Bex::CSimpleString::Formatted("sender address <%s> has bad format", strSender.Text()));
    if (!IsValidAddress(strRecipient))
        throw CSMTPPermanentException(
            SOURCE_FILE, __LINE__,
            Bex::CSimpleString::Formatted("recipient address <%s> has bad format", strRecipient.Text()));
}

Bex::CSimpleString RouteOf(const Bex::CSimpleString& strSender, const Bex::CSimpleString& strRecipient)
{
    const Bex::CSimpleString strDomain = strRecipient.AfterFirst('@');
    const Bex::CSimpleString strFrom = MaskOf(strSender).value_or(strSender).AfterFirst('@');
    const Bex::CSimpleString strHosts = SmartHosts().Match(strFrom, strDomain).strHosts;
    return strHosts.IsEmpty() ? strDomain.Lowered() : strHosts;
}

SFoundTargets FindTargets(const Bex::CSimpleString& strSender, const Bex::CSimpleString& strRecipient,
                          const Platform::CWaitLimit& limit)
{
    CheckAddresses(strSender, strRecipient);
    const Platform::CWaitLimit resolution = limit.AtMost(LONGEST_RESOLUTION);
    const Bex::CSimpleString strDomain = strRecipient.AfterFirst('@');
    SFoundTargets found;
    SmartHosts().FindSmartHosts(strSender.AfterFirst('@'), strDomain, resolution, found.targets);
    found.bSmartHosts = !found.targets.IsEmpty();
    if (!found.bSmartHosts)
        ResolveDomain(strDomain, resolution, found.targets);
    return found;
}
