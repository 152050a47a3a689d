#include "Common/Connectivity.h"

#include "Platform/Clock.h"
#include "Platform/Connectivity.h"

#include <atomic>
#include <cstdint>

namespace {

constexpr int64_t PROBE_UNUSABLE_AFTER = 60; // seconds
constexpr int64_t PROBE_USABLE_AFTER = 3600;

struct SConnectivity
{
    std::atomic<bool> bIPv4 = false;
    std::atomic<bool> bIPv6 = false;
    std::atomic<int64_t> iLastProbe = 0;
};

SConnectivity s_connectivity;

/// A clock that was set back is a reason, too.
bool IsProbeDue(bool bUsable, int64_t iLastProbe, int64_t iNow)
{
    return iNow < iLastProbe || iNow - iLastProbe > (bUsable ? PROBE_USABLE_AFTER : PROBE_UNUSABLE_AFTER);
}

bool IsUsable(const std::atomic<bool>& bFamily)
{
    const int64_t iNow = Platform::NowSeconds();
    bool bIPv4 = false;
    bool bIPv6 = false;
    if (IsProbeDue(bFamily, s_connectivity.iLastProbe, iNow) && Platform::ProbeConnectivity(bIPv4, bIPv6)) {
        s_connectivity.bIPv4 = bIPv4;
        s_connectivity.bIPv6 = bIPv6;
        s_connectivity.iLastProbe = iNow;
    }
    return bFamily;
}

} // namespace

bool IsIPv4Usable() { return IsUsable(s_connectivity.bIPv4); }

bool IsIPv6Usable() { return IsUsable(s_connectivity.bIPv6); }
