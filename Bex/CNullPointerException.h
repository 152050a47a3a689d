#pragma once

#include "Bex/CException.h"

namespace Bex {

/// An object that must be there is not.
class CNullPointerException : public CException
{
public:
    CNullPointerException(const char* pszSourceFile, int iLine)
        : CException("CNullPointerException", pszSourceFile, iLine)
    {}
};

[[noreturn]] void ThrowNullPointerException(const char* pszSourceFile, int iLine);

} // namespace Bex
