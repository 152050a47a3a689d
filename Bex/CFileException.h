#pragma once

#include "Bex/CException.h"
#include "Platform/Errors.h"

#include <cstdint>

namespace Bex {

/// A file operation failed. Each of the two codes is -1 when it does not apply.
class CFileException : public CException
{
public:
    CFileException(const char* pszSourceFile, int iLine, int32_t iLibError, int32_t iSysError)
        : CException("CFileException", pszSourceFile, iLine), m_iLibError(iLibError), m_iSysError(iSysError)
    {}
    void GetMessage(char* pBuffer, size_t nSize) const override;
    int32_t LibError() const { return m_iLibError; }
    int32_t SysError() const { return m_iSysError; }
    Platform::SError Error() const; ///< both; 0 for one that does not apply

private:
    int32_t m_iLibError;
    int32_t m_iSysError;
};

[[noreturn]] void ThrowFileException(const char* pszSourceFile, int iLine, int32_t iLibError, int32_t iSysError);
/// With the codes of the platform operation that just failed.
[[noreturn]] void ThrowFileException(const char* pszSourceFile, int iLine);

/// Logs a caught exception to the main log as an error: "CFileException(SysError=.., LibError=..) at ..:.. caught at
/// ..:..", followed by ": " and the action when one is given.
void LogCaught(const CFileException& exception, const char* pszCatchingFile, int iCatchingLine,
               const char* pszAction = nullptr);

/// For catch (...): whether the exception being handled tells of something that is in use or short.
bool IsHandledExceptionBusy();

} // namespace Bex
