#pragma once

#include <string>
#include <vector>

namespace Platform {

/// A service as it is installed.
struct SServiceEntry
{
    std::string strShortName;
    std::string strDisplayName;
    std::string strExecutable;
    std::string strParameters;                    ///< as on a command line
    std::string strConfigDirectory;               ///< for MAILCONFIGDIR; empty: the variable is not set
    std::vector<std::string> writableDirectories; ///< those that exist are writable, the rest of the system is not
};

/// The text of the unit file; here so that what is installed can be tested. Any thread.
std::string ComposeUnit(const SServiceEntry& entry);

} // namespace Platform
