#pragma once

#include <cstddef>
#include <cstdint>

namespace Platform {

/// What is there of standard input, up to so many bytes; waits for the first one. 0 at the end, -1 and LastError on
/// failure. Used by one thread.
int64_t ReadStandardInput(void* pBuffer, size_t nCount);

} // namespace Platform
