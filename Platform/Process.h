#pragma once

#include <string>

/// What this process knows of itself. Thread-safe.
namespace Platform {

unsigned CurrentProcessId();
std::string EnvironmentVariable(const char* pszName, bool& bPresent);

} // namespace Platform
