#pragma once

#include <string_view>

/// Writes the table of local domains anew with one domain more, or as it is when that is empty, which has a running
/// daemon read it again, with users and aliases. Whoever reads it meanwhile sees the old one or the new one; comments,
/// mode and owner stay. Two of these at once wait for each other. CControlError when it cannot be done.
void AddLocalDomain(std::string_view domain);
