#pragma once

#include "Bex/CList.h"
#include "Bex/CSimpleString.h"

#include <vector>

/// What a domain asks receivers to do with mail that only claims to come from it (RFC 7489 6.3): the value of the
/// tag as published, "none" when there is none. Asks the resolver, name by name; any thread.
Bex::CSimpleString LookupDMARCPolicy(const Bex::CSimpleString& strDomain);

/// The names under which the policy of a domain may stand, in the order in which they are asked for: its own, then
/// those of its parents, never that of a top-level domain below another. A name with many labels goes straight to
/// its last ones (RFC 9989 4.10), so that a made-up address cannot cost hundreds of questions.
std::vector<Bex::CSimpleString> DMARCNames(const Bex::CSimpleString& strDomain);

/// The policy that the first text record with one tells; "none" without one.
Bex::CSimpleString FindDMARCPolicy(const Bex::CList<Bex::CSimpleString>& texts);
