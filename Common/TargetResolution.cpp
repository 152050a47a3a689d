#include "Common/TargetResolution.h"

#include "Bex/CResolver.h"
#include "Common/Connectivity.h"
#include "Platform/SocketAddress.h"

#include <utility>

namespace {

using Bex::CList;
using Bex::CSimpleString;

constexpr uint16_t SMTP_PORT = 25;
constexpr unsigned LONGEST_CHAIN = 10;
constexpr uint32_t MOST_TARGETS = 256; // however many records a hostile zone hands out

/// Makes the targets of one resolution.
class CTargetCollector
{
public:
    CTargetCollector(CTargetList& targets, uint16_t wPort, CSmartHost pattern, const Platform::CWaitLimit& limit)
        : m_targets(targets), m_wPort(wPort), m_pattern(std::move(pattern)), m_limit(limit)
    {}

    EResolution CollectDomain(const CSimpleString& strDomain, bool bFirstExchangeOnly, unsigned dwDepth);
    void CollectHost(const CSimpleString& strHost, unsigned dwDepth);

private:
    EResolution CollectCanonical(const CList<CSimpleString>& names, bool bFirstExchangeOnly, unsigned dwDepth);
    bool CollectLiteral(const CSimpleString& strHost);
    void CollectAddresses(const CSimpleString& strName);
    void Append(Bex::CSocketEndPoint endPoint);
    bool GoesOn() const { return m_targets.Count() < MOST_TARGETS && !m_limit.IsOver(); }

    CTargetList& m_targets;
    uint16_t m_wPort;
    CSmartHost m_pattern; ///< of which every target is a copy with its own end point
    const Platform::CWaitLimit& m_limit;
};

EResolution CTargetCollector::CollectDomain(const CSimpleString& strDomain, bool bFirstExchangeOnly, unsigned dwDepth)
{
    if (dwDepth > LONGEST_CHAIN || !GoesOn())
        return EResolution::RetryLater;
    CList<CSimpleString> exchanges(false);
    Bex::CResolver::ResolveMX(strDomain, exchanges, m_limit); // a failure is logged; the domain's own addresses may do
    if (exchanges.IsEmpty()) {
        CList<CSimpleString> names(false);
        Bex::CResolver::ResolveCNAME(strDomain, names, m_limit);
        if (!names.IsEmpty())
            return CollectCanonical(names, bFirstExchangeOnly, dwDepth);
        exchanges.Append(strDomain); // RFC 5321 5.1: the implicit exchange
    } else if (exchanges.Count() == 1 && *exchanges.begin() == ".") {
        return EResolution::NullMX; // RFC 7505
    }
    for (const CSimpleString& strExchange : exchanges) {
        m_pattern.strHostName = strExchange;
        CollectAddresses(strExchange);
        if (bFirstExchangeOnly)
            break;
    }
    return EResolution::Done;
}

EResolution CTargetCollector::CollectCanonical(const CList<CSimpleString>& names, bool bFirstExchangeOnly,
                                               unsigned dwDepth)
{
    uint32_t dwVerdicts = 0;
    for (const CSimpleString& strName : names)
        dwVerdicts |= static_cast<uint32_t>(CollectDomain(strName, bFirstExchangeOnly, dwDepth + 1));
    return m_targets.IsEmpty() ? static_cast<EResolution>(dwVerdicts) : EResolution::Done;
}

void CTargetCollector::CollectHost(const CSimpleString& strHost, unsigned dwDepth)
{
    if (dwDepth > LONGEST_CHAIN || !GoesOn() || CollectLiteral(strHost))
        return;
    CList<CSimpleString> names(false);
    Bex::CResolver::ResolveCNAME(strHost, names, m_limit);
    for (const CSimpleString& strName : names)
        CollectHost(strName, dwDepth + 1);
    if (names.IsEmpty())
        CollectAddresses(strHost);
}

bool CTargetCollector::CollectLiteral(const CSimpleString& strHost)
{
    Platform::SSocketAddress address;
    if (!(IsIPv6Usable() && Platform::ParseAddress(Platform::FAMILY_IPV6, strHost.Text(), address)) &&
        !(IsIPv4Usable() && Platform::ParseAddress(Platform::FAMILY_IPV4, strHost.Text(), address)))
        return false;
    address.wPort = m_wPort;
    Append(Bex::CSocketEndPoint(address));
    return true;
}

void CTargetCollector::CollectAddresses(const CSimpleString& strName)
{
    if (IsIPv6Usable() && GoesOn()) {
        CList<Bex::CIPv6Address> addresses(false);
        Bex::CResolver::ResolveAAAA(strName, addresses, m_limit);
        for (const Bex::CIPv6Address& address : addresses)
            Append(Bex::CSocketEndPoint(address, m_wPort));
    }
    if (IsIPv4Usable() && GoesOn()) {
        CList<Bex::CIPv4Address> addresses(false);
        Bex::CResolver::ResolveA(strName, addresses, m_limit);
        for (const Bex::CIPv4Address& address : addresses)
            Append(Bex::CSocketEndPoint(address, m_wPort));
    }
}

void CTargetCollector::Append(Bex::CSocketEndPoint endPoint)
{
    if (m_targets.Count() >= MOST_TARGETS)
        return;
    CSmartHost target(m_pattern);
    target.endPoint = std::move(endPoint);
    m_targets.Append(std::move(target));
}

} // namespace

EResolution ResolveTargets(CTargetList& targets, const CSimpleString& strDomain, bool bFirstExchangeOnly,
                           const Platform::CWaitLimit& limit, unsigned dwDepth)
{
    return CTargetCollector(targets, SMTP_PORT, {}, limit).CollectDomain(strDomain, bFirstExchangeOnly, dwDepth);
}

void ResolveHostTargets(CTargetList& targets, const CSimpleString& strHost, uint16_t wPort,
                        const CSimpleString& strUser, const CSimpleString& strPassword, ETLSMode mode,
                        const Platform::CWaitLimit& limit)
{
    CSmartHost pattern;
    pattern.strHostName = strHost;
    pattern.strUser = strUser;
    pattern.strPassword = strPassword;
    // Without a secret to protect, TLS is a favour.
    const bool bCredentials = !strUser.IsEmpty() || !strPassword.IsEmpty();
    pattern.mode = mode != ETLSMode::None && !bCredentials ? ETLSMode::Opportunistic : mode;
    CTargetCollector(targets, wPort, std::move(pattern), limit).CollectHost(strHost, 0);
}
