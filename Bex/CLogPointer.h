#pragma once

#include "Bex/ILogDestination.h"

#include <memory>
#include <mutex>

namespace Bex {

/// A process-wide destination that can be replaced while other threads write to it: a writer keeps the old one alive
/// until its line is out. Empty: lines are dropped.
class CLogPointer
{
public:
    void Replace(std::shared_ptr<ILogDestination> pDestination);
    std::shared_ptr<ILogDestination> Get() const;

private:
    mutable std::mutex m_mutex;
    std::shared_ptr<ILogDestination> m_pDestination;
};

} // namespace Bex
