#include "Bex/Log.h"

#include "Bex/CErrorLines.h"
#include "Bex/CWithheldLog.h"
#include "Bex/TextFunctions.h"
#include "Platform/CImmortal.h"
#include "Platform/Errors.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

namespace Bex {

namespace {

constexpr int LEVEL_ERROR = 3;
constexpr size_t TEXT_SIZE = LONGEST_LOG_TEXT + 1; // with the terminating NUL

/// The formatted text, cut, with "?" for every control character but a line end that belongs to the format.
void FormatText(char (&text)[TEXT_SIZE], const char* pszFormat, va_list arguments)
{
    int iLength = std::vsnprintf(text, TEXT_SIZE, pszFormat, arguments);
    if (iLength < 0) // an argument that cannot be shown: better the bare format than no line at all
        iLength = std::snprintf(text, TEXT_SIZE, "%s", pszFormat);
    const bool bCut = static_cast<size_t>(iLength) >= TEXT_SIZE;
    char* pEnd = text + (bCut ? TEXT_SIZE - 1 : static_cast<size_t>(iLength));
    const size_t nFormat = std::strlen(pszFormat);
    if (!bCut && nFormat > 0 && pszFormat[nFormat - 1] == '\n')
        --pEnd;
    MaskControls(text, pEnd);
}

/// A line that cannot be written is lost; its writer goes on, with the platform's last error as it was.
void WriteText(CLogPointer& log, int iLevel, const char* pszFormat, va_list arguments) noexcept
{
    const Platform::SError lastError = Platform::LastError();
    try {
        if (const auto pDestination = log.Get()) {
            char text[TEXT_SIZE];
            FormatText(text, pszFormat, arguments);
            if (CWithheldLog::Take(log, iLevel, text))
                return Platform::SetLastError(lastError);
            if (iLevel <= LEVEL_ERROR)
                CErrorLines::Note(text);
            pDestination->Write(iLevel, text, 0);
        }
    } catch (...) { // whatever a destination raises
    }
    Platform::SetLastError(lastError);
}

} // namespace

CLogPointer& MainLog()
{
    static Platform::CImmortal<CLogPointer> log;
    return *log;
}

CLogPointer& TrafficLog()
{
    static Platform::CImmortal<CLogPointer> log;
    return *log;
}

void LogError(CLogPointer& log, const char* pszFormat, ...)
{
    va_list arguments;
    va_start(arguments, pszFormat);
    WriteText(log, LEVEL_ERROR, pszFormat, arguments);
    va_end(arguments);
}

void LogWarning(CLogPointer& log, const char* pszFormat, ...)
{
    va_list arguments;
    va_start(arguments, pszFormat);
    WriteText(log, 4, pszFormat, arguments);
    va_end(arguments);
}

void LogNotice(CLogPointer& log, const char* pszFormat, ...)
{
    va_list arguments;
    va_start(arguments, pszFormat);
    WriteText(log, 5, pszFormat, arguments);
    va_end(arguments);
}

void LogInfo(CLogPointer& log, const char* pszFormat, ...)
{
    va_list arguments;
    va_start(arguments, pszFormat);
    WriteText(log, 6, pszFormat, arguments);
    va_end(arguments);
}

void Log(CLogPointer& log, int iLevel, const char* pszFormat, ...)
{
    va_list arguments;
    va_start(arguments, pszFormat);
    WriteText(log, iLevel, pszFormat, arguments);
    va_end(arguments);
}

} // namespace Bex
