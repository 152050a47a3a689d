#pragma once

#include "Bex/CException.h"

namespace Bex {

/// A parameter outside of what an operation takes.
class CInvalidParameterException : public CException
{
public:
    CInvalidParameterException(const char* pszSourceFile, int iLine)
        : CException("CInvalidParameterException", pszSourceFile, iLine)
    {}
};

[[noreturn]] void ThrowInvalidParameterException(const char* pszSourceFile, int iLine);

} // namespace Bex
