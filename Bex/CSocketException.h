#pragma once

#include "Bex/CException.h"
#include "Platform/SocketErrors.h"

#include <cstdint>

namespace Bex {

/// A socket or name resolution failure, by its 10xxx or 11xxx code.
class CSocketException : public CException
{
public:
    CSocketException(const char* pszSourceFile, int iLine, uint32_t dwSocketError)
        : CException("CSocketException", pszSourceFile, iLine), m_dwSocketError(dwSocketError)
    {}
    void GetMessage(char* pBuffer, size_t nSize) const override;
    uint32_t SocketError() const { return m_dwSocketError; }
    const char* Text() const; ///< of the code

private:
    uint32_t m_dwSocketError;
};

[[noreturn]] void ThrowSocketException(const char* pszSourceFile, int iLine, uint32_t dwSocketError);

} // namespace Bex
