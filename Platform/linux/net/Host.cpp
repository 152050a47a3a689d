#include "Platform/Host.h"

#include "Platform/linux/base/Result.h"

#include <array>
#include <climits>
#include <unistd.h>

namespace Platform {

bool HostName(std::string& strName)
{
    std::array<char, HOST_NAME_MAX + 1> name{};
    if (!Succeeded(gethostname(name.data(), name.size())))
        return false;
    strName = name.data();
    return true;
}

} // namespace Platform
