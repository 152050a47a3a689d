#pragma once

#include "Bex/CException.h"

namespace Bex {

/// Memory ran out. Thrown without allocating: every throw copies one static instance, with the place of the caller.
class COutOfMemoryException : public CException
{
public:
    COutOfMemoryException(const char* pszSourceFile, int iLine)
        : CException("COutOfMemoryException", pszSourceFile, iLine)
    {}
};

[[noreturn]] void ThrowOutOfMemoryException(const char* pszSourceFile, int iLine);

} // namespace Bex
