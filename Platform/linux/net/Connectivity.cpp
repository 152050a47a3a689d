#include "Platform/Connectivity.h"

#include "Platform/Process.h"
#include "Platform/linux/net/NativeAddress.h"
#include "Platform/linux/net/SocketFailure.h"

#include <cstring>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <net/if_arp.h>
#include <netpacket/packet.h>
#include <set>

namespace Platform {

namespace {

constexpr unsigned short IP6GRE = 823; // a type that the C library does not name yet

struct SFreeAdapters
{
    void operator()(ifaddrs* pAdapters) const { freeifaddrs(pAdapters); }
};

bool IsTunnel(const sockaddr* pAddress)
{
    if (pAddress->sa_family != AF_PACKET)
        return false;
    sockaddr_ll link;
    memcpy(&link, pAddress, sizeof(link));
    return link.sll_hatype == ARPHRD_TUNNEL || link.sll_hatype == ARPHRD_TUNNEL6 || link.sll_hatype == ARPHRD_SIT ||
           link.sll_hatype == ARPHRD_IPGRE || link.sll_hatype == IP6GRE;
}

bool ReachesOut(const ifaddrs& adapter)
{
    return (adapter.ifa_flags & IFF_UP) != 0 && (adapter.ifa_flags & IFF_RUNNING) != 0 &&
           (adapter.ifa_flags & IFF_LOOPBACK) == 0;
}

bool IsUsableIPv4(const SSocketAddress& address)
{
    return address.iFamily == FAMILY_IPV4 && address.bytes[0] != 127 &&
           (address.bytes[0] != 169 || address.bytes[1] != 254);
}

/// Of the global range that is handed out.
bool IsUsableIPv6(const SSocketAddress& address)
{
    return address.iFamily == FAMILY_IPV6 && (address.bytes[0] & 0x30) == 0x20;
}

} // namespace

bool ProbeConnectivity(bool& bIPv4, bool& bIPv6)
{
    bool bOverridden = false;
    const std::string strFamilies = EnvironmentVariable("TOBIX_CONNECTIVITY", bOverridden);
    if (bOverridden) {
        bIPv4 = strFamilies.find('4') != std::string::npos;
        bIPv6 = strFamilies.find('6') != std::string::npos;
        return true;
    }
    ifaddrs* pFound = nullptr;
    if (getifaddrs(&pFound) != 0)
        return FailSocketWithErrno();
    const std::unique_ptr<ifaddrs, SFreeAdapters> pAdapters(pFound);
    std::set<std::string> tunnels;
    for (const ifaddrs* pAdapter = pFound; pAdapter != nullptr; pAdapter = pAdapter->ifa_next) {
        if (pAdapter->ifa_addr != nullptr && IsTunnel(pAdapter->ifa_addr))
            tunnels.emplace(pAdapter->ifa_name);
    }
    bIPv4 = bIPv6 = false;
    for (const ifaddrs* pAdapter = pFound; pAdapter != nullptr; pAdapter = pAdapter->ifa_next) {
        if (pAdapter->ifa_addr == nullptr || !ReachesOut(*pAdapter) || tunnels.contains(pAdapter->ifa_name))
            continue;
        const SSocketAddress address = FromNative(pAdapter->ifa_addr);
        bIPv4 = bIPv4 || IsUsableIPv4(address);
        bIPv6 = bIPv6 || IsUsableIPv6(address);
    }
    return true;
}

} // namespace Platform
