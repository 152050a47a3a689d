#pragma once

#include "Platform/SocketAddress.h"

#include <sys/socket.h>

namespace Platform {

/// An address in the layout that Linux's calls take.
struct SNativeAddress
{
    sockaddr_storage storage{};
    socklen_t nLength = sizeof(sockaddr_storage); ///< of what is filled in, or of the room there is

    sockaddr* Get() { return reinterpret_cast<sockaddr*>(&storage); }
    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

int NativeFamily(int iFamily);                                        ///< AF_UNSPEC for an unknown one
bool ToNative(const SSocketAddress& address, SNativeAddress& native); ///< false: unknown family
SSocketAddress FromNative(const sockaddr* pNative);                   ///< FAMILY_NONE for an unknown family

} // namespace Platform
