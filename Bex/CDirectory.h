#pragma once

#include "Bex/CSimpleString.h"

namespace Bex {

/// Operations on directories by name. Any thread.
class CDirectory
{
public:
    /// False when nothing of that name exists; CFileException (system error 80) when it is not a directory.
    static bool Exists(const CSimpleString& strPath);
    static void Create(const CSimpleString& strPath); ///< one level; CFileException on failure
};

} // namespace Bex
