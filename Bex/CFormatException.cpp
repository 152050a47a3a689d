#include "Bex/CFormatException.h"

namespace Bex {

void ThrowFormatException(const char* pszSourceFile, int iLine) { throw CFormatException(pszSourceFile, iLine); }

} // namespace Bex
