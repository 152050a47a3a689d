#pragma once

/// Which address families are worth looking up and connecting to. Any thread.
///
/// The machine's adapters are looked at again once a minute while a family is unusable and once an hour while it is
/// usable, by whichever thread asks; when they cannot be listed, what was known stays.
bool IsIPv4Usable();
bool IsIPv6Usable();
