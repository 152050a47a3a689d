#pragma once

#include "Bex/CException.h"

namespace Bex {

/// An operation on an object that is not ready for it.
class CInvalidStateException : public CException
{
public:
    CInvalidStateException(const char* pszSourceFile, int iLine)
        : CException("CInvalidStateException", pszSourceFile, iLine)
    {}
};

[[noreturn]] void ThrowInvalidStateException(const char* pszSourceFile, int iLine);

} // namespace Bex
