#pragma once

#include "Bex/CLogPointer.h"

#include <cstddef>

namespace Bex {

CLogPointer& MainLog();    ///< every subsystem
CLogPointer& TrafficLog(); ///< one line per mail that another host took

inline constexpr size_t LONGEST_LOG_TEXT = 1023; ///< in characters

/// One line each, printf-style, cut at LONGEST_LOG_TEXT. Control characters that the arguments bring in, line ends
/// among them, become "?", so that what an outsider wrote cannot forge a line; a line end that the format itself
/// ends with stays. Any thread; never raises.
void LogError(CLogPointer& log, const char* pszFormat, ...) __attribute__((format(printf, 2, 3)));
void LogWarning(CLogPointer& log, const char* pszFormat, ...) __attribute__((format(printf, 2, 3)));
void LogNotice(CLogPointer& log, const char* pszFormat, ...) __attribute__((format(printf, 2, 3)));
void LogInfo(CLogPointer& log, const char* pszFormat, ...) __attribute__((format(printf, 2, 3)));
void Log(CLogPointer& log, int iLevel, const char* pszFormat, ...) __attribute__((format(printf, 3, 4)));

} // namespace Bex
