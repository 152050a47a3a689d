#pragma once

#include "Bex/CList.h"
#include "Bex/CSimpleString.h"
#include "Platform/CWaitLimit.h"

#include <functional>
#include <optional>
#include <vector>

/// What a domain asks receivers to do with mail that only claims to come from it (RFC 7489 6.3): the value of the
/// tag as published, "none" when there is none. Nothing when the stop ended the question, or when the answer is still
/// on its way: the caller comes back for it. Any thread.
///
/// Asks the resolver, name by name, and calls BeforeWaiting before an answer is waited for. It waits for half a second
/// at most and for a tenth of all time, so that somebody who has many slow servers cannot hold the queue; but every
/// domain has ten seconds for its answers, whatever others do. One that lets them pass is not asked again for five
/// minutes.
std::optional<Bex::CSimpleString> LookupDMARCPolicy(const Bex::CSimpleString& strDomain,
                                                    const Platform::CWaitLimit& stop,
                                                    const std::function<void()>& BeforeWaiting);

/// The names under which the policy of a domain may stand, in the order in which they are asked for: its own, then
/// those of its parents, never that of a top-level domain below another. A name with many labels goes straight to
/// its last ones (RFC 9989 4.10), so that a made-up address cannot cost hundreds of questions.
std::vector<Bex::CSimpleString> DMARCNames(const Bex::CSimpleString& strDomain);

/// The policy that the first text record with one tells; "none" without one.
Bex::CSimpleString FindDMARCPolicy(const Bex::CList<Bex::CSimpleString>& texts);
