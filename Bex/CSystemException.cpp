#include "Bex/CSystemException.h"

namespace Bex {

void CSystemException::GetMessage(char* pBuffer, size_t nSize) const
{
    Render(pBuffer, nSize, "%s in file \"%s\" at line %d; system error: 0x%08X", ClassName(), SourceFile(), Line(),
           m_dwSysError);
}

void ThrowSystemException(const char* pszSourceFile, int iLine, uint32_t dwSysError)
{
    throw CSystemException(pszSourceFile, iLine, dwSysError);
}

} // namespace Bex
