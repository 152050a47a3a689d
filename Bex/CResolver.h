#pragma once

#include "Bex/CIPv4Address.h"
#include "Bex/CIPv6Address.h"
#include "Bex/CList.h"

namespace Bex {

/// Questions to the domain name system, each with a deadline. Any thread.
///
/// True when the answer can be used, which "no such name" and "no such record" can (nothing is appended); false
/// (logged) for any other failure. Records keep the order of the answer. A name with a dot in it is fully qualified.
class CResolver
{
public:
    static bool ResolveA(const CSimpleString& strName, CList<CIPv4Address>& addresses);
    static bool ResolveAAAA(const CSimpleString& strName, CList<CIPv6Address>& addresses);
    static bool ResolveCNAME(const CSimpleString& strName, CList<CSimpleString>& names);
    static bool ResolveMX(const CSimpleString& strName, CList<CSimpleString>& names);  ///< by preference
    static bool ResolveTXT(const CSimpleString& strName, CList<CSimpleString>& texts); ///< one per record
};

} // namespace Bex
