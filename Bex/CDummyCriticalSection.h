#pragma once

#include "Bex/ISyncObject.h"

namespace Bex {

/// The lock of a container that belongs to one thread: does nothing.
class CDummyCriticalSection : public ISyncObject
{
public:
    bool Lock(unsigned) override { return Lock(); }
    bool Lock() override { return true; }
    bool Unlock() override { return true; }
};

} // namespace Bex
