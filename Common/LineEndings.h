#pragma once

#include "Bex/CArray.h"

/// Makes every line break of a mail body CR LF and drops its NULs. Stateless, any thread.
namespace LineEndings {

/// In place: no copy of the text is made. COutOfMemoryException when it does not fit; the text is then unchanged.
void Normalize(Bex::CArray<char>& text);

} // namespace LineEndings
