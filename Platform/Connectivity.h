#pragma once

namespace Platform {

/// Which address families of this machine reach beyond it: of adapters that are up and neither loopback nor tunnel.
/// False when the adapters cannot be listed. The environment variable TOBIX_CONNECTIVITY ("4", "6", "46", or neither)
/// tells it instead, for machines whose only network is the loopback. Any thread.
bool ProbeConnectivity(bool& bIPv4, bool& bIPv6);

} // namespace Platform
