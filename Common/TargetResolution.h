#pragma once

#include "Common/CSmartHost.h"
#include "Platform/CWaitLimit.h"

#include <string_view>

/// From a domain or a host to the addresses to connect to (RFC 5321 5.1); at most 256, whatever a zone hands out. Any
/// thread. Once the limit is over nothing more is asked.

enum class EResolution { Done = 0, RetryLater = 1, NullMX = 4 };

/// Appends the targets of a domain: its mail exchangers in order of preference, else its own addresses. Done with an
/// empty list when nothing was found. Depth is that of a chain of canonical names, 0 for the caller.
EResolution ResolveTargets(CTargetList& targets, const Bex::CSimpleString& strDomain, bool bFirstExchangeOnly,
                           const Platform::CWaitLimit& limit, unsigned dwDepth = 0);
/// Appends the targets of one named host or address literal.
void ResolveHostTargets(CTargetList& targets, const Bex::CSimpleString& strHost, uint16_t wPort,
                        const Bex::CSimpleString& strUser, const Bex::CSimpleString& strPassword, ETLSMode mode,
                        const Platform::CWaitLimit& limit);
