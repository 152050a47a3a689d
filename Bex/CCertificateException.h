#pragma once

#include "Bex/CException.h"

#include <cstdint>

namespace Bex {

/// A certificate that was not accepted, by its error code.
class CCertificateException : public CException
{
public:
    CCertificateException(const char* pszSourceFile, int iLine, uint32_t dwError)
        : CException("CCertificateException", pszSourceFile, iLine), m_dwError(dwError)
    {}
    void GetMessage(char* pBuffer, size_t nSize) const override;
    uint32_t Error() const { return m_dwError; }

private:
    uint32_t m_dwError;
};

[[noreturn]] void ThrowCertificateException(const char* pszSourceFile, int iLine, uint32_t dwError);

} // namespace Bex
