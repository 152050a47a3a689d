#include "Platform/SocketAddress.h"

#include "Platform/linux/net/NativeAddress.h"
#include "Platform/linux/net/SocketFailure.h"

#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>

namespace Platform {

int NativeFamily(int iFamily)
{
    switch (iFamily) {
    case FAMILY_IPV4:
        return AF_INET;
    case FAMILY_IPV6:
        return AF_INET6;
    default:
        return AF_UNSPEC;
    }
}

bool ToNative(const SSocketAddress& address, SNativeAddress& native)
{
    native.storage = {};
    if (address.iFamily == FAMILY_IPV4) {
        sockaddr_in ipv4{};
        ipv4.sin_family = AF_INET;
        ipv4.sin_port = htons(address.wPort);
        memcpy(&ipv4.sin_addr, address.bytes.data(), sizeof(ipv4.sin_addr));
        memcpy(&native.storage, &ipv4, native.nLength = sizeof(ipv4));
        return true;
    }
    if (address.iFamily == FAMILY_IPV6) {
        sockaddr_in6 ipv6{};
        ipv6.sin6_family = AF_INET6;
        ipv6.sin6_port = htons(address.wPort);
        memcpy(&ipv6.sin6_addr, address.bytes.data(), sizeof(ipv6.sin6_addr));
        ipv6.sin6_scope_id = address.dwScope;
        memcpy(&native.storage, &ipv6, native.nLength = sizeof(ipv6));
        return true;
    }
    return FailSocket(SOCKET_NO_SUCH_FAMILY);
}

SSocketAddress FromNative(const sockaddr* pNative)
{
    SSocketAddress address;
    if (pNative->sa_family == AF_INET) {
        sockaddr_in ipv4;
        memcpy(&ipv4, pNative, sizeof(ipv4));
        address.iFamily = FAMILY_IPV4;
        address.wPort = ntohs(ipv4.sin_port);
        memcpy(address.bytes.data(), &ipv4.sin_addr, sizeof(ipv4.sin_addr));
    } else if (pNative->sa_family == AF_INET6) {
        sockaddr_in6 ipv6;
        memcpy(&ipv6, pNative, sizeof(ipv6));
        address.iFamily = FAMILY_IPV6;
        address.wPort = ntohs(ipv6.sin6_port);
        address.dwScope = ipv6.sin6_scope_id;
        memcpy(address.bytes.data(), &ipv6.sin6_addr, sizeof(ipv6.sin6_addr));
    }
    return address;
}

bool ParseAddress(int iFamily, const char* pszText, SSocketAddress& address)
{
    SSocketAddress parsed;
    parsed.iFamily = iFamily;
    if (NativeFamily(iFamily) == AF_UNSPEC)
        return FailSocket(SOCKET_NO_SUCH_FAMILY);
    if (inet_pton(NativeFamily(iFamily), pszText, parsed.bytes.data()) != 1)
        return FailSocket(SOCKET_HOST_NOT_FOUND);
    address = parsed;
    return true;
}

std::string AddressText(const SSocketAddress& address)
{
    char szText[INET6_ADDRSTRLEN] = {};
    if (inet_ntop(NativeFamily(address.iFamily), address.bytes.data(), szText, sizeof(szText)) == nullptr)
        return {};
    return szText;
}

} // namespace Platform
