#pragma once

#include "Platform/CInjectedFault.h"

/// Lets tests watch the calls of the platform layer that succeed. Process-wide: the watcher is set before the threads
/// under test run and outlives their calls.
namespace Platform {

/// One call that has succeeded.
struct SCall
{
    EFault kind;
    const char* pszPath = nullptr;
    const char* pszTo = nullptr; ///< the new name of a rename or a link
    int iDescriptor = -1;        ///< the open file; of Open the one that it gave
    const void* pData = nullptr; ///< what was written
    size_t nBytes = 0;
};

/// Is told of each call while it lives, on the calling thread, before the caller goes on; one call at a time.
class CCallWatcher
{
public:
    CCallWatcher();
    virtual ~CCallWatcher();
    CCallWatcher(const CCallWatcher&) = delete;
    CCallWatcher& operator=(const CCallWatcher&) = delete;

    virtual void OnCall(const SCall& call) = 0; ///< makes no calls of this layer
};

} // namespace Platform
