#pragma once

#include "Bex/CException.h"

namespace Bex {

/// Memory ran out. Can be thrown when nothing can be allocated any more; every throw has its own place.
class COutOfMemoryException : public CException
{
public:
    COutOfMemoryException(const char* pszSourceFile, int iLine)
        : CException("COutOfMemoryException", pszSourceFile, iLine)
    {}
};

[[noreturn]] void ThrowOutOfMemoryException(const char* pszSourceFile, int iLine);

} // namespace Bex
