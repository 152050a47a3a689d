#pragma once

#include "Platform/Errors.h"

#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>

namespace Platform {

/// The name of a local socket in the layout that Linux's calls take.
struct SLocalAddress
{
    sockaddr_un name{};

    bool Set(const char* pszPath) ///< false: LastError
    {
        const size_t nLength = std::strlen(pszPath);
        if (nLength == 0 || nLength >= sizeof name.sun_path) {
            SetLastError({LIB_NAME_TOO_LONG, SYS_FILENAME_TOO_LONG});
            return false;
        }
        name.sun_family = AF_UNIX;
        std::memcpy(name.sun_path, pszPath, nLength + 1);
        return true;
    }
    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&name); }
};

} // namespace Platform
