#include "Bex/CFileException.h"

#include "Bex/COutOfMemoryException.h"
#include "Bex/CSystemException.h"
#include "Bex/Log.h"
#include "Bex/SCodeText.h"

namespace Bex {

namespace {

constexpr int32_t NO_ERROR_CODE = -1;

constexpr SCodeText SYSTEM_TEXTS[] = {
    {2, "file not found"},
    {3, "path not found"},
    {5, "access denied"},
    {267, "directory name is invalid"},
};

constexpr SCodeText LIBRARY_TEXTS[] = {
    {2, "file or path not found"},
    {9, "invalid file handle or the file is not opened for writing"},
    {13, "tried to open read-only file for writing, or file's sharing mode does not allow specified operations, or "
         "given path is directory"},
    {17, "_O_CREAT and _O_EXCL flags specified, but filename already exists"},
    {22, "invalid oflag or pmode argument"},
    {24, "no more file handles available (too many open files)"},
    {28, "no space left on device"},
};

/// The system error alone decides when there is one.
const char* TextOf(int32_t iLibError, int32_t iSysError)
{
    if (iSysError != NO_ERROR_CODE)
        return TextOfCode(SYSTEM_TEXTS, static_cast<uint32_t>(iSysError));
    return TextOfCode(LIBRARY_TEXTS, static_cast<uint32_t>(iLibError));
}

} // namespace

Platform::SError CFileException::Error() const
{
    return {m_iLibError == NO_ERROR_CODE ? Platform::LIB_NONE : m_iLibError,
            m_iSysError == NO_ERROR_CODE ? Platform::SYS_NONE : static_cast<uint32_t>(m_iSysError)};
}

void CFileException::GetMessage(char* pBuffer, size_t nSize) const
{
    Render(pBuffer, nSize, "%s in file \"%s\" at line %d; library error: %d, system error: %u, message: %s",
           ClassName(), SourceFile(), Line(), m_iLibError, static_cast<uint32_t>(m_iSysError),
           TextOf(m_iLibError, m_iSysError));
}

void ThrowFileException(const char* pszSourceFile, int iLine, int32_t iLibError, int32_t iSysError)
{
    throw CFileException(pszSourceFile, iLine, iLibError, iSysError);
}

void ThrowFileException(const char* pszSourceFile, int iLine)
{
    const Platform::SError error = Platform::LastError();
    throw CFileException(pszSourceFile, iLine, error.iLibError, static_cast<int32_t>(error.dwSysError));
}

void LogCaught(const CFileException& exception, const char* pszCatchingFile, int iCatchingLine, const char* pszAction)
{
    LogError(MainLog(), "%s(SysError=%d, LibError=%d) at %s:%d caught at %s:%d%s%s", exception.ClassName(),
             exception.SysError(), exception.LibError(), exception.SourceFile(), exception.Line(), pszCatchingFile,
             iCatchingLine, pszAction != nullptr ? ": " : "", pszAction != nullptr ? pszAction : "");
}

bool IsHandledExceptionBusy()
{
    try {
        throw;
    } catch (const CFileException& exception) {
        return Platform::IsBusy(exception.Error());
    } catch (const CSystemException& exception) {
        return Platform::IsBusy({Platform::LIB_NONE, exception.SysError()});
    } catch (const COutOfMemoryException&) {
        return true;
    } catch (const std::bad_alloc&) { // the standard library's containers
        return true;
    } catch (...) {
        return false;
    }
}

} // namespace Bex
