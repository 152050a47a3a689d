#pragma once

#include "Platform/FileIdentity.h"

#include <sys/stat.h>

namespace Platform {

inline SFileIdentity IdentityFrom(const struct stat& status)
{
    return {status.st_dev, status.st_ino, status.st_size,
            status.st_mtim.tv_sec * int64_t{1'000'000'000} + status.st_mtim.tv_nsec};
}

} // namespace Platform
