#pragma once

#include <cstdint>
#include <string>

namespace Platform {

/// Bytes that the control group of this process, and each one above it, lets it have in memory, at most nSwap of them
/// in swap space; UINT64_MAX when none has a limit or there are no such groups (cgroup v2). Any thread.
uint64_t MostGroupMemory(uint64_t nSwap, const std::string& strMembership = "/proc/self/cgroup",
                         const std::string& strGroups = "/sys/fs/cgroup");

} // namespace Platform
