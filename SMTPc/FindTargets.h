#pragma once

#include "Common/CSmartHost.h"
#include "Platform/CWaitLimit.h"

#include <optional>

/// How the tables steer a mail that leaves. Any thread.

/// The address that stands in for the sender; nothing: the sender stays.
std::optional<Bex::CSimpleString> MaskOf(const Bex::CSimpleString& strSender);

/// Raises the SMTP exception of an address that is none.
void CheckAddresses(const Bex::CSimpleString& strSender, const Bex::CSimpleString& strRecipient);

/// A text that is the same for mails that go the same way: the smart hosts, or the recipient's domain. Nobody is asked.
Bex::CSimpleString RouteOf(const Bex::CSimpleString& strSender, const Bex::CSimpleString& strRecipient);

struct SFoundTargets
{
    CTargetList targets{false};
    bool bSmartHosts = false; ///< of them, not of the recipient's domain
};

/// The smart hosts for the mail, or its recipient's mail exchangers, in the order in which they are tried; raises the
/// SMTP exceptions when it cannot go anywhere. May ask name servers, for 40 seconds at most.
SFoundTargets FindTargets(const Bex::CSimpleString& strSender, const Bex::CSimpleString& strRecipient,
                          const Platform::CWaitLimit& limit);
