#pragma once

#include "Bex/CMutex.h"
#include "Bex/CSimpleString.h"

/// The lock under which a file of an account is changed, not yet taken: with `LockDir` for all hosts that share it,
/// wherever each of them sees the mailboxes (`SpoolDir`), else for this one. Exceptions as of Bex::CMutex. Any thread.
Bex::CMutex AccountLock(const Bex::CSimpleString& strPath);
