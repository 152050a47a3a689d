#pragma once

#include "Bex/CThread.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

/// The thread that keeps the service manager informed: what there is to do, when that has changed, and, where it asks
/// for that, that every thread gets on. While one is stuck it keeps silent, so that the manager starts the service
/// again. Owned by the service.
class CStatusReporter : public Bex::CThread
{
public:
    /// Describe gives the line that the manager shows; none: it cannot be told now. Called on this thread.
    explicit CStatusReporter(std::function<std::optional<std::string>()> Describe);
    ~CStatusReporter() override = default;

protected:
    void Body() override;

private:
    void TellThatAllGetOn();

    std::function<std::optional<std::string>()> m_Describe;
    bool m_bStuckLogged = false;
};
