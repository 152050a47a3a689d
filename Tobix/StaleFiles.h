#pragma once

#include "Bex/CSimpleString.h"

#include <cstdint>

/// Removes the temporary files (".<name>.eml.tmp") that a crash left in a directory of mail files, and the marks of who
/// was told of a mail (CToldMark) that has gone another way meanwhile. What another process is still writing stays.
/// Call before the agents run; a missing directory holds none. Any thread. A mailbox needs no call: the next mail takes
/// the same number, and with it the temporary name.
void RemoveStaleFiles(const Bex::CSimpleString& strDirectory);
/// Files whose last change was so long ago, of those with names like the pattern; any thread.
void RemoveOldFiles(const Bex::CSimpleString& strDirectory, int64_t iSeconds, const char* pszPattern = "*");
void RemoveStaleFilesBelow(const Bex::CSimpleString& strDirectory); ///< in its directories; links are not followed
