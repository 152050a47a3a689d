#include "Bex/CInvalidParameterException.h"

namespace Bex {

void ThrowInvalidParameterException(const char* pszSourceFile, int iLine)
{
    throw CInvalidParameterException(pszSourceFile, iLine);
}

} // namespace Bex
