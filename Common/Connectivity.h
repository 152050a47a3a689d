#pragma once

#include <cstdint>

/// Which address families are worth looking up and connecting to. Any thread.
///
/// The machine's adapters are looked at again once a minute while a family is unusable and once an hour while it is
/// usable, by whichever thread asks; when they cannot be listed, what was known stays.
bool IsIPv4Usable();
bool IsIPv6Usable();

/// Whether the adapters are to be looked at again. Times in seconds since 1970-01-01 UTC; a clock set back is a reason.
bool IsProbeDue(bool bUsable, int64_t iLastProbe, int64_t iNow);
