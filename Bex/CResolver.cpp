#include "Bex/CResolver.h"

#include "Bex/DnsRecords.h"
#include "Bex/Log.h"
#include "Platform/DnsQuery.h"

#include <algorithm>

namespace Bex {

namespace {

constexpr char SOURCE_FILE[] = "Bex/CResolver";
constexpr uint64_t LONGEST_QUERY = 15'000; ///< milliseconds
constexpr uint64_t AT_ONCE = 10;           ///< the same, in which a cache answers

bool Fail(int iLine, uint32_t dwStatus)
{
    LogError(MainLog(), "DnsQuery failed at %s:%d with code 0x%08X\n", SOURCE_FILE, iLine, dwStatus);
    return false;
}

/// Asks and hands each record to the decoder, which refuses a malformed one.
template <class TDecoder>
bool Resolve(const CSimpleString& strName, Platform::EDnsType type, const Platform::CWaitLimit& limit, TDecoder decode)
{
    std::vector<std::string> records;
    const uint32_t dwStatus = Platform::QueryDns(strName.Text(), type, limit.AtMost(LONGEST_QUERY), records);
    if (dwStatus == Platform::DNS_NO_SUCH_NAME || dwStatus == Platform::DNS_NO_RECORDS)
        return true;
    if (dwStatus == Platform::DNS_CANCELED)
        return false;
    if (dwStatus != Platform::DNS_OK)
        return Fail(__LINE__, dwStatus);
    for (const std::string& strData : records) {
        if (!decode(std::string_view(strData)))
            return Fail(__LINE__, Platform::DNS_BAD_PACKET);
    }
    return true;
}

template <class TAddress>
bool ResolveAddresses(const CSimpleString& strName, Platform::EDnsType type, int iFamily, size_t nBytes,
                      const Platform::CWaitLimit& limit, CList<TAddress>& addresses)
{
    CList<TAddress> found(false);
    const bool bDone = Resolve(strName, type, limit, [&](std::string_view data) {
        Platform::SSocketAddress address;
        if (data.size() != nBytes)
            return false;
        address.iFamily = iFamily;
        std::copy(data.begin(), data.end(), address.bytes.begin());
        found.Append(TAddress(address));
        return true;
    });
    if (bDone)
        addresses.AppendAll(found);
    return bDone;
}

template <class TDecode>
bool ResolveTexts(const CSimpleString& strName, Platform::EDnsType type, const Platform::CWaitLimit& limit,
                  TDecode decodeText, CList<CSimpleString>& texts)
{
    CList<CSimpleString> found(false);
    const bool bDone = Resolve(strName, type, limit, [&](std::string_view data) {
        CSimpleString strText;
        if (!decodeText(data, strText))
            return false;
        found.Append(std::move(strText));
        return true;
    });
    if (bDone)
        texts.AppendAll(found);
    return bDone;
}

} // namespace

bool CResolver::ResolveA(const CSimpleString& strName, CList<CIPv4Address>& addresses, const CLimit& limit)
{
    return ResolveAddresses(strName, Platform::EDnsType::A, Platform::FAMILY_IPV4, 4, limit, addresses);
}

bool CResolver::ResolveAAAA(const CSimpleString& strName, CList<CIPv6Address>& addresses, const CLimit& limit)
{
    if (strName.EqualsNoCase("localhost") || strName.EqualsNoCase("localhost.")) {
        addresses.Append(CIPv6Address("::1"));
        return true;
    }
    return ResolveAddresses(strName, Platform::EDnsType::AAAA, Platform::FAMILY_IPV6, 16, limit, addresses);
}

bool CResolver::ResolveCNAME(const CSimpleString& strName, CList<CSimpleString>& names, const CLimit& limit)
{
    return ResolveTexts(strName, Platform::EDnsType::CNAME, limit, DecodeDnsName, names);
}

bool CResolver::ResolveMX(const CSimpleString& strName, CList<CSimpleString>& names, const CLimit& limit)
{
    std::vector<SMailExchange> exchanges;
    const bool bDone = Resolve(strName, Platform::EDnsType::MX, limit, [&](std::string_view data) {
        SMailExchange exchange;
        if (!DecodeDnsMX(data, exchange))
            return false;
        exchanges.push_back(std::move(exchange));
        return true;
    });
    if (!bDone)
        return false;
    // RFC 5321 5.1; the ones that are equally preferred keep the order of the answer, which servers vary.
    std::stable_sort(exchanges.begin(), exchanges.end(),
                     [](const SMailExchange& a, const SMailExchange& b) { return a.wPreference < b.wPreference; });
    for (SMailExchange& exchange : exchanges)
        names.Append(std::move(exchange.strName));
    return true;
}

bool CResolver::HasAnswerToTXT(const CSimpleString& strName, const CLimit& limit)
{
    std::vector<std::string> records;
    return Platform::QueryDns(strName.Text(), Platform::EDnsType::TXT, limit.AtMost(AT_ONCE), records) !=
           Platform::DNS_TIMED_OUT;
}

bool CResolver::ResolveTXT(const CSimpleString& strName, CList<CSimpleString>& texts, const CLimit& limit,
                           const std::function<void()>& BeforeWaiting)
{
    if (BeforeWaiting && !HasAnswerToTXT(strName, limit))
        BeforeWaiting(); // the question is on its way, and will be joined
    return ResolveTexts(strName, Platform::EDnsType::TXT, limit, DecodeDnsTXT, texts);
}

} // namespace Bex
