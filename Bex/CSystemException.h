#pragma once

#include "Bex/CException.h"

#include <cstdint>

namespace Bex {

/// A system call on an event, thread or mutex failed.
class CSystemException : public CException
{
public:
    CSystemException(const char* pszSourceFile, int iLine, uint32_t dwSysError)
        : CException("CSystemException", pszSourceFile, iLine), m_dwSysError(dwSysError)
    {}
    void GetMessage(char* pBuffer, size_t nSize) const override;
    uint32_t SysError() const { return m_dwSysError; }

private:
    uint32_t m_dwSysError;
};

[[noreturn]] void ThrowSystemException(const char* pszSourceFile, int iLine, uint32_t dwSysError);

} // namespace Bex
