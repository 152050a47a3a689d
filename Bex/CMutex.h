#pragma once

#include "Bex/CSimpleString.h"
#include "Bex/ISyncObject.h"
#include "Platform/CNamedMutex.h"

#include <memory>

namespace Bex {

/// A mutex that threads and processes of one user share by its name; abandoned counts as acquired.
///
/// Used by one thread. Lock and Unlock of an object without a mutex raise CInvalidStateException.
class CMutex : public ISyncObject
{
public:
    CMutex() = default;
    /// A name longer than 260 characters raises CInvalidParameterException, a mutex that cannot be made
    /// CSystemException.
    explicit CMutex(const CSimpleString& strName);

    bool Lock(unsigned dwMillis) override;
    bool Lock() override;
    bool Unlock() override;
    void Close(); ///< lets go of the lock and the mutex

private:
    std::unique_ptr<Platform::CNamedMutex> m_pMutex;
};

} // namespace Bex
