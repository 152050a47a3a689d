// What CMDAService tells the service manager of its work.

#include "Platform/ServiceStatus.h"
#include "Tobix/CMDAService.h"

/// Without one a manager that asks for signs of life would end the service.
bool CMDAService::StartReporter()
{
    if (IsDebug() || !Platform::HasServiceManager())
        return true;
    m_pReporter = std::make_unique<CStatusReporter>([this] { return DescribeWork(); });
    return m_pReporter->Start("status reporter");
}

/// From what the workers have in memory. None while they or the tables change.
std::optional<std::string> CMDAService::DescribeWork()
{
    const std::unique_lock lock(m_workersAndTables, std::try_to_lock);
    if (!lock.owns_lock() || !m_pLocalAgent)
        return std::nullopt;
    const std::string strQueue = "queue " + std::to_string(m_pLocalAgent->Waiting());
    const std::string strOutgoing = m_remoteDelivery.Describe();
    return strOutgoing.empty() ? strQueue : strQueue + ", " + strOutgoing;
}
