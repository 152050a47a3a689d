#pragma once

#include "Bex/CException.h"

namespace Bex {

/// A text that does not have the form it must have.
class CFormatException : public CException
{
public:
    CFormatException(const char* pszSourceFile, int iLine) : CException("CFormatException", pszSourceFile, iLine) {}
};

[[noreturn]] void ThrowFormatException(const char* pszSourceFile, int iLine);

} // namespace Bex
