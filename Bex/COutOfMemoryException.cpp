#include "Bex/COutOfMemoryException.h"

namespace Bex {

// The runtime keeps a reserve from which it takes the exception object when the heap gives none.
void ThrowOutOfMemoryException(const char* pszSourceFile, int iLine)
{
    throw COutOfMemoryException(pszSourceFile, iLine);
}

} // namespace Bex
