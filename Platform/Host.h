#pragma once

#include <cstdint>
#include <string>

/// Who this machine is, and what it has. Thread-safe.
namespace Platform {

bool HostName(std::string& strName); ///< false: LastError
/// Bytes that this process can have in memory at the very most: of the machine with its swap space, or by its limits.
uint64_t MostMemory();
/// What was taken in large pieces goes back to the system as soon as it is freed, whatever came before. Once, at first.
void ReturnFreedMemory();

} // namespace Platform
