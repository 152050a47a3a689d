#include "Bex/CIndexOutOfBoundsException.h"

namespace Bex {

void ThrowIndexOutOfBoundsException(const char* pszSourceFile, int iLine)
{
    throw CIndexOutOfBoundsException(pszSourceFile, iLine);
}

} // namespace Bex
