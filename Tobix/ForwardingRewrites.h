#pragma once

#include "Common/CMail.h"

/// Rewrites a copy that an alias sends on to a remote address, so that its receiver accepts it from this host. The
/// recipient that the mail was addressed to is recorded; the envelope sender is moved into this system's SRS domain
/// when one is configured; and a From address whose domain wants mail from others rejected gives way to the envelope
/// sender, the author staying in Sender and Reply-To. Never fails. Any thread.
void ApplyForwardingRewrites(CMail& copy, const Bex::CSimpleString& strAddressedRecipient,
                             const Bex::CSimpleString& strAuthorPolicy);

/// The domain whose policy counts when the mail is sent on; empty: none does.
Bex::CSimpleString AuthorDomain(const CMail& mail);
