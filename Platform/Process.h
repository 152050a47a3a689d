#pragma once

#include <cstdint>
#include <string>

/// What this process knows of itself. Thread-safe unless said otherwise.
namespace Platform {

unsigned CurrentProcessId();
uint32_t CurrentUserId(); ///< the one whose rights count
/// As many open files as the system allows this process. Programs that it starts get the number from before. Once,
/// before other threads are there.
void RaiseDescriptorLimit();
std::string EnvironmentVariable(const char* pszName, bool& bPresent);
/// Also for the programs that are started. Only while no other thread may look at the environment: at the start.
void SetEnvironmentVariable(const char* pszName, const char* pszValue);

} // namespace Platform
