#include "Bex/CInvalidStateException.h"

namespace Bex {

void ThrowInvalidStateException(const char* pszSourceFile, int iLine)
{
    throw CInvalidStateException(pszSourceFile, iLine);
}

} // namespace Bex
