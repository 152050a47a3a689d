#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Platform {

/// One stretch of a process's memory.
struct SMapping
{
    uint64_t ui64Start = 0;
    uint64_t ui64End = 0; ///< the first address behind it
    uint64_t ui64Offset = 0;
    bool bRead = false;
    bool bWrite = false;
    bool bExecute = false;
    bool bShared = false;
    uint64_t ui64Own = 0; ///< bytes that differ from the file behind it, or have none; with bDetails only
    std::string strName;  ///< path, or a name in brackets, or nothing

    uint64_t Size() const { return ui64End - ui64Start; }
    bool IsOfFile() const { return strName.starts_with('/'); }
};

/// In the order of the addresses; empty when the process does not let this one look.
std::vector<SMapping> ReadMemoryMap(pid_t iProcess, bool bDetails);

} // namespace Platform
