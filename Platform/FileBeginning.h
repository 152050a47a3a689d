#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Platform {

/// How a file begins, and what it is. A value.
struct SFileBeginning
{
    std::string strBytes;
    int64_t iSize = 0;     ///< bytes of the whole file
    int64_t iCreated = 0;  ///< nanoseconds since 1970-01-01 UTC; as SFileTimes
    int64_t iModified = 0; ///< likewise
};

/// Reads up to nMost bytes of a regular file for somebody who only looks: without any claim on it, so that whoever
/// writes or delivers it neither notices nor matters. False: LastError; a link, a pipe or a device is refused. Any
/// thread.
bool ReadBeginning(const char* pszPath, size_t nMost, SFileBeginning& beginning);

} // namespace Platform
