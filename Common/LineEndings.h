#pragma once

#include "Bex/CArray.h"

#include <string_view>

/// Makes every line break of a mail body CR LF and drops its NULs. Stateless, any thread.
namespace LineEndings {

/// False when nothing is to be changed; else the changed text is in the (empty) result.
/// COutOfMemoryException when it does not fit.
bool Normalize(std::string_view text, Bex::CArray<char>& result);

} // namespace LineEndings
