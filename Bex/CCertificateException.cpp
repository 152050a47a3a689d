#include "Bex/CCertificateException.h"

namespace Bex {

void CCertificateException::GetMessage(char* pBuffer, size_t nSize) const
{
    Render(pBuffer, nSize, "%s in file \"%s\" at line %d; system error: %u, message: unknown error", ClassName(),
           SourceFile(), Line(), m_dwError);
}

void ThrowCertificateException(const char* pszSourceFile, int iLine, uint32_t dwError)
{
    throw CCertificateException(pszSourceFile, iLine, dwError);
}

} // namespace Bex
