#pragma once

#include "Bex/CSimpleString.h"
#include "Bex/CTime.h"
#include "Platform/CWaitLimit.h"

/// Who this host is, as far as its mail tells: asked once by whoever needs it. A value.
struct LocalHostIdentity
{
    Bex::CSimpleString strAddress;  ///< dotted IPv4 address, "0.0.0.0" when unknown
    Bex::CSimpleString strHostName; ///< canonical name, "unknown" when the host has none

    static LocalHostIdentity Obtain(const Platform::CWaitLimit& limit = {}); ///< may ask the resolver
};

/// The value of this system's own Received field (RFC 5321 4.4); an empty recipient leaves the clause out.
Bex::CSimpleString MakeReceivedValue(const Bex::CSimpleString& strHostName, const Bex::CSimpleString& strRecipient,
                                     Bex::CTime time);
