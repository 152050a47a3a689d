#pragma once

#include "Bex/CIPv4Address.h"
#include "Bex/CIPv6Address.h"
#include "Bex/CList.h"
#include "Platform/CWaitLimit.h"

#include <functional>

namespace Bex {

/// Questions to the domain name system, each of them for 15 seconds at most. Any thread.
///
/// True when the answer can be used, which "no such name" and "no such record" can (nothing is appended); false for
/// any other failure, which is logged unless it is the limit's stop. Records keep the order of the answer. A name with
/// a dot in it is fully qualified.
class CResolver
{
public:
    using CLimit = Platform::CWaitLimit;

    static bool ResolveA(const CSimpleString& strName, CList<CIPv4Address>& addresses, const CLimit& limit = {});
    static bool ResolveAAAA(const CSimpleString& strName, CList<CIPv6Address>& addresses, const CLimit& limit = {});
    static bool ResolveCNAME(const CSimpleString& strName, CList<CSimpleString>& names, const CLimit& limit = {});
    static bool ResolveMX(const CSimpleString& strName, CList<CSimpleString>& names,
                          const CLimit& limit = {}); ///< by preference
    /// One per record. BeforeWaiting is called while a question is on its way that the cache does not answer at once.
    static bool ResolveTXT(const CSimpleString& strName, CList<CSimpleString>& texts, const CLimit& limit = {},
                           const std::function<void()>& BeforeWaiting = {});
    /// Whether that question has an answer by now, or at once. If not, it is on its way all the same: whoever asks
    /// again joins it. Nothing is logged.
    static bool HasAnswerToTXT(const CSimpleString& strName, const CLimit& limit);
};

} // namespace Bex
