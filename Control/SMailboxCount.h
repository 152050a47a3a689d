#pragma once

#include "Bex/CSimpleString.h"

#include <cstdint>

/// What lies in a mailbox. A value.
struct SMailboxCount
{
    uint64_t nMails = 0;
    uint64_t nBytes = 0;
    int64_t iLastChange = 0; ///< of the directory or of a mail, in seconds since 1970-01-01 UTC; 0: unknown

    static SMailboxCount Of(const Bex::CSimpleString& strDirectory); ///< CFileException when it cannot be listed

private:
    void AddFiles(const Bex::CSimpleString& strDirectory, const char* pszPattern);
};
