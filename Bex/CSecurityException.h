#pragma once

#include "Bex/CException.h"

#include <cstdint>

namespace Bex {

/// A TLS negotiation failure, by its security status.
class CSecurityException : public CException
{
public:
    CSecurityException(const char* pszSourceFile, int iLine, uint32_t dwStatus)
        : CException("CSecurityException", pszSourceFile, iLine), m_dwStatus(dwStatus)
    {}
    void GetMessage(char* pBuffer, size_t nSize) const override;
    uint32_t Status() const { return m_dwStatus; }
    const char* Text() const; ///< of the code

private:
    uint32_t m_dwStatus;
};

[[noreturn]] void ThrowSecurityException(const char* pszSourceFile, int iLine, uint32_t dwStatus);

} // namespace Bex
