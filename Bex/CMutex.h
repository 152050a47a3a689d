#pragma once

#include "Bex/CSimpleString.h"
#include "Bex/ISyncObject.h"
#include "Platform/CNamedMutex.h"

#include <functional>
#include <memory>

namespace Bex {

/// A mutex that threads and processes of one user share by its name; abandoned counts as acquired.
///
/// Used by one thread. Lock answers false when the time is up (Platform::SYS_TIMEOUT), or at once while the system has
/// no place for named locks, which is logged when it begins, for each place. Lock and Unlock of an object without a
/// mutex raise CInvalidStateException.
class CMutex : public ISyncObject
{
public:
    CMutex() = default;
    /// With a directory, for the hosts that share it. CInvalidParameterException for a name of more than 260
    /// characters.
    explicit CMutex(const CSimpleString& strName, const CSimpleString& strDirectory = {});

    bool Lock(unsigned dwMillis) override;
    /// The function, if any, is called before there is something to wait for.
    bool Lock(unsigned dwMillis, const std::function<void()>& BeforeWaiting);
    bool Lock() override;
    bool Unlock() override;
    void Close(); ///< lets go of the lock and the mutex

private:
    std::unique_ptr<Platform::CNamedMutex> m_pMutex;
};

} // namespace Bex
