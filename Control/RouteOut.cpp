#include "Control/RouteOut.h"

#include "Bex/TextFunctions.h"
#include "Common/Connectivity.h"
#include "Common/Globals.h"
#include "Common/NormalizeAddress.h"
#include "Platform/Clock.h"
#include "SMTPc/CSMTPException.h"
#include "SMTPc/FindTargets.h"
#include "Tobix/DMARCPolicy.h"
#include "Tobix/ForwardingRewrites.h"

namespace {

constexpr uint64_t LONGEST_POLICY = 10'000; // milliseconds
constexpr unsigned BETWEEN_QUESTIONS = 100;

/// Asked again while the answer is on its way, as the daemon comes back for it.
Bex::CSimpleString PolicyOf(const Bex::CSimpleString& strDomain)
{
    const Platform::CWaitLimit limit = Platform::CWaitLimit().For(LONGEST_POLICY);
    for (;;) {
        const auto policy = LookupDMARCPolicy(strDomain, {}, [] {});
        if (policy || !limit.HasTimeLeft())
            return policy.value_or("none");
        Platform::SleepMillis(BETWEEN_QUESTIONS);
    }
}

/// The rewrites of what an alias sends on.
void Forward(CMail& copy, const Bex::CSimpleString& strRecipient, CRouteAnswer& answer)
{
    const Bex::CSimpleString strSender = copy.EnvelopeSender();
    const Bex::CSimpleString strAuthor = copy.FromAddress();
    const Bex::CSimpleString strDomain = AuthorDomain(copy);
    const Bex::CSimpleString strPolicy = strDomain.IsEmpty() ? Bex::CSimpleString() : PolicyOf(strDomain);
    ApplyForwardingRewrites(copy, strRecipient, strPolicy);
    answer.Tell("resent_for", "X-Resent-For", copy.ResentFor().Text());
    if (!strDomain.IsEmpty()) {
        answer.Set("dmarc", {{"domain", strDomain.Text()}, {"policy", strPolicy.Text()}});
        answer.Say("DMARC", std::string(strDomain.Text()) + " asks for " + strPolicy.Text());
    }
    if (copy.EnvelopeSender() != strSender)
        answer.TellWith("srs_sender", "SRS", "sent by ", copy.EnvelopeSender());
    if (copy.FromAddress() != strAuthor)
        answer.TellWith("author", "From", "replaced by ", copy.FromAddress());
}

struct STlsText
{
    const char* pszName;
    const char* pszText;
};

STlsText TlsText(ETLSMode mode)
{
    if (mode == ETLSMode::Direct)
        return {"direct", "TLS from the first byte"};
    if (mode == ETLSMode::None || !Config().GetFlag(Keys::USE_TLS))
        return {"none", "no TLS"};
    if (mode == ETLSMode::Offered)
        return {"offered", "STARTTLS where it is offered"};
    return {"opportunistic", "STARTTLS where it is offered; when that fails, in clear"};
}

void TellTargets(const CTargetList& targets, CRouteAnswer& answer)
{
    auto list = nlohmann::ordered_json::array();
    for (const CSmartHost& target : targets) {
        const STlsText tls = TlsText(target.mode);
        const std::string strAddress = Platform::AddressText(target.endPoint.Raw());
        const std::string strPort = std::to_string(target.endPoint.Port());
        const bool bLogsIn = !target.strUser.IsEmpty() && !target.strPassword.IsEmpty();
        nlohmann::ordered_json entry{{"host", target.strHostName.Text()},
                                     {"address", strAddress},
                                     {"port", target.endPoint.Port()},
                                     {"tls", tls.pszName}};
        std::string strText = target.strHostName.Text();
        for (const std::string_view part : {" [", strAddress.c_str(), "]:", strPort.c_str(), ", ", tls.pszText})
            strText += part;
        if (bLogsIn) {
            entry["user"] = target.strUser.Text();
            strText.append(", logs in as ").append(target.strUser.Text());
        }
        list.push_back(std::move(entry));
        answer.Say(list.size() == 1 ? "tries" : "then", strText, EStyle::Good);
    }
    answer.Set("targets", std::move(list));
}

void TellServers(const Bex::CSimpleString& strSender, const Bex::CSimpleString& strRecipient, CRouteAnswer& answer)
{
    const Bex::CSimpleString strDomain = strRecipient.AfterFirst('@');
    const CSmartHosts::SMatch match = SmartHosts().Match(strSender.AfterFirst('@'), strDomain);
    if (!match.strKey.IsEmpty())
        answer.TellWith("smart_host_key", "smart hosts", "of the key ", match.strKey);
    if (!IsIPv4Usable() && !IsIPv6Usable())
        answer.Tell("network", "network", "none: no interface of this machine has an address of use", EStyle::Warning);
    try {
        const SFoundTargets found = FindTargets(strSender, strRecipient, {});
        if (!found.bSmartHosts && !match.strKey.IsEmpty())
            answer.Tell("fallback", "exchangers", "as no smart host of that key has an address", EStyle::Warning);
        if (!found.bSmartHosts && BackupDomains().ContainsExact(strDomain))
            answer.Tell("backup_domain", "exchangers", "the first one only, as this is a backup domain");
        TellTargets(found.targets, answer);
    } catch (const CSMTPException& exception) {
        answer.Fail(exception.LastLine().Text());
    }
}

} // namespace

void TellWayOut(const CMail& mail, const Bex::CSimpleString& strRecipient, const SRecipientRoute& route,
                CRouteAnswer& answer)
{
    CMail copy(mail, strRecipient);
    if (route.bSentOn)
        Forward(copy, strRecipient, answer);
    answer.Tell("outgoing", "outgoing", Config().GetPath(Keys::OUTGOING_DIR).Text());
    if (!Config().GetFlag(Keys::AUTO_TRANSPORT))
        return answer.Tell("transport", "transport", "off: newmail.cmd of that directory takes over");
    Bex::CSimpleString strSender = copy.EnvelopeSender();
    if (const auto strMask = MaskOf(strSender)) {
        strSender = *strMask;
        answer.TellWith("masked_sender", "masquerades", "sent by ", strSender);
    }
    const bool bLower = Config().GetFlag(Keys::RCPT_TO_DOMAIN_TO_LOWER);
    TellServers(strSender, bLower ? WithLowerDomain(route.strTarget) : route.strTarget, answer);
}
