#include "Platform/Process.h"

#include <cstdlib>
#include <unistd.h>

namespace Platform {

unsigned CurrentProcessId() { return static_cast<unsigned>(getpid()); }

uint32_t CurrentUserId() { return geteuid(); }

std::string EnvironmentVariable(const char* pszName, bool& bPresent)
{
    const char* const pszValue = std::getenv(pszName);
    bPresent = pszValue != nullptr;
    return bPresent ? pszValue : "";
}

void SetEnvironmentVariable(const char* pszName, const char* pszValue) { setenv(pszName, pszValue, 1); }

} // namespace Platform
