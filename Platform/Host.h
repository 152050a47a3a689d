#pragma once

#include <string>

/// Who this machine is. Thread-safe.
namespace Platform {

bool HostName(std::string& strName); ///< false: LastError

} // namespace Platform
