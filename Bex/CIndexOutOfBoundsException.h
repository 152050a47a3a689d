#pragma once

#include "Bex/CException.h"

namespace Bex {

/// An index outside a string, list or array.
class CIndexOutOfBoundsException : public CException
{
public:
    CIndexOutOfBoundsException(const char* pszSourceFile, int iLine)
        : CException("CIndexOutOfBoundsException", pszSourceFile, iLine)
    {}
};

[[noreturn]] void ThrowIndexOutOfBoundsException(const char* pszSourceFile, int iLine);

} // namespace Bex
