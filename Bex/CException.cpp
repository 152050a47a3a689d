#include "Bex/CException.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace Bex {

void CException::GetMessage(char* pBuffer, size_t nSize) const
{
    Render(pBuffer, nSize, "%s in file \"%s\" at line %d", m_pszClassName, m_pszSourceFile, m_iLine);
}

void CException::Print() const
{
    char text[1000];
    GetMessage(text, sizeof(text));
    std::puts(text);
}

void CException::Render(char* pBuffer, size_t nSize, const char* pszFormat, ...)
{
    if (nSize == 0)
        return;
    std::memset(pBuffer, 0, nSize);
    va_list arguments;
    va_start(arguments, pszFormat);
    std::vsnprintf(pBuffer, nSize, pszFormat, arguments);
    va_end(arguments);
}

} // namespace Bex
