#include "Bex/CNullPointerException.h"

namespace Bex {

void ThrowNullPointerException(const char* pszSourceFile, int iLine)
{
    throw CNullPointerException(pszSourceFile, iLine);
}

} // namespace Bex
