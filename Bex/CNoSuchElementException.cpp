#include "Bex/CNoSuchElementException.h"

namespace Bex {

void ThrowNoSuchElementException(const char* pszSourceFile, int iLine)
{
    throw CNoSuchElementException(pszSourceFile, iLine);
}

} // namespace Bex
