#include "Platform/HostLookup.h"

#include "Platform/linux/net/NativeAddress.h"
#include "Platform/linux/net/SocketFailure.h"

#include <memory>
#include <netdb.h>
#include <netinet/in.h>

namespace Platform {

namespace {

struct SFreeAddresses
{
    void operator()(addrinfo* pAddresses) const { freeaddrinfo(pAddresses); }
};

constexpr size_t LONGEST_HOST_NAME = 1024;

} // namespace

bool LookupHost(int iFamily, const char* pszName, std::vector<SSocketAddress>& addresses, std::string* pCanonicalName)
{
    addrinfo hints{};
    hints.ai_family = NativeFamily(iFamily);
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    hints.ai_flags = pCanonicalName != nullptr ? AI_CANONNAME : 0;
    if (hints.ai_family == AF_UNSPEC)
        return FailSocket(SOCKET_NO_SUCH_FAMILY);
    addrinfo* pFound = nullptr;
    const int iResult = getaddrinfo(pszName, nullptr, &hints, &pFound);
    const std::unique_ptr<addrinfo, SFreeAddresses> pOwned(pFound);
    if (iResult != 0)
        return FailLookup(iResult);
    if (pCanonicalName != nullptr)
        *pCanonicalName = pFound->ai_canonname != nullptr ? pFound->ai_canonname : "";
    for (const addrinfo* pAddress = pFound; pAddress != nullptr; pAddress = pAddress->ai_next) {
        if (pAddress->ai_family == hints.ai_family)
            addresses.push_back(FromNative(pAddress->ai_addr));
    }
    return true;
}

bool LookupName(const SSocketAddress& address, std::string& strName)
{
    SNativeAddress native;
    if (!ToNative(address, native))
        return false;
    char szName[LONGEST_HOST_NAME] = {};
    const int iResult = getnameinfo(native.Get(), native.nLength, szName, sizeof(szName), nullptr, 0, NI_NAMEREQD);
    if (iResult != 0)
        return FailLookup(iResult);
    strName = szName;
    return true;
}

} // namespace Platform
