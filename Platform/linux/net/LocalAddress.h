#pragma once

#include "Platform/Errors.h"

#include <cstddef>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>

namespace Platform {

/// The name of a local socket in the layout that Linux's calls take.
struct SLocalAddress
{
    sockaddr_un name{};
    socklen_t nLength = 0;

    /// A path, or "@" and an abstract name. False: LastError.
    bool Set(const char* pszPath)
    {
        const size_t nPath = std::strlen(pszPath);
        if (nPath == 0 || nPath >= sizeof name.sun_path) {
            SetLastError({LIB_NAME_TOO_LONG, SYS_FILENAME_TOO_LONG});
            return false;
        }
        name.sun_family = AF_UNIX;
        std::memcpy(name.sun_path, pszPath, nPath);
        if (*pszPath == '@')
            name.sun_path[0] = '\0';
        nLength = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + nPath);
        return true;
    }
    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&name); }
};

} // namespace Platform
