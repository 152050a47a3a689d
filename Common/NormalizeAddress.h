#pragma once

#include "Bex/CSimpleString.h"

#include <string_view>

/// Reduces an address header value to a bare address (RFC 5322 3.4 in the forms that mailers send): without name,
/// comment, quotes and angle brackets, the domain in lower case. "<>" gives the empty string. Any thread.
Bex::CSimpleString NormalizeAddress(std::string_view value);

/// Only the domain in lower case. Any thread.
Bex::CSimpleString WithLowerDomain(const Bex::CSimpleString& strAddress);
