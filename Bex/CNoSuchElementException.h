#pragma once

#include "Bex/CException.h"

namespace Bex {

/// A key that a map does not hold.
class CNoSuchElementException : public CException
{
public:
    CNoSuchElementException(const char* pszSourceFile, int iLine)
        : CException("CNoSuchElementException", pszSourceFile, iLine)
    {}
};

[[noreturn]] void ThrowNoSuchElementException(const char* pszSourceFile, int iLine);

} // namespace Bex
