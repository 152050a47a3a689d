#pragma once

#include "Common/CMail.h"

/// Marks a copy that an alias sends on to a remote address with the recipient that the mail was addressed to.
void ApplyForwardingRewrites(CMail& copy, const Bex::CSimpleString& strAddressedRecipient);
