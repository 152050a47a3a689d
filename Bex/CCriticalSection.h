#pragma once

#include "Bex/ISyncObject.h"

#include <mutex>

namespace Bex {

/// An in-process lock; the thread that holds it may take it again.
class CCriticalSection : public ISyncObject
{
public:
    bool Lock(unsigned dwMillis) override; ///< polls, see the steps in the implementation
    bool Lock() override;
    bool Unlock() override;

private:
    std::recursive_mutex m_mutex;
};

} // namespace Bex
