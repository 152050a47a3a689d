#pragma once

#include "Platform/linux/base/GuardedCall.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <sys/inotify.h>
#include <unistd.h>

namespace Platform {

/// The watch's number; -1 with errno, which is ENOLCK when the system has no more watches.
inline int AddWatch(int iQueue, const char* pszPath, uint32_t dwEvents)
{
    const int iWatch =
        GuardedCall({EFault::WatchDirectory, pszPath}, [&] { return inotify_add_watch(iQueue, pszPath, dwEvents); });
    if (iWatch < 0 && errno == ENOSPC) // no disk is full
        errno = ENOLCK;
    return iWatch;
}

/// Hands each event that waits in a non-blocking notification queue to take(event, name), the name empty when the
/// event is about the watched directory itself. False, with errno, when the queue cannot be read.
template <typename Take>
bool DrainNotifications(int iDescriptor, Take&& take)
{
    alignas(inotify_event) std::array<char, std::size_t{32} * 1024> buffer;
    for (;;) {
        const ssize_t iRead = read(iDescriptor, buffer.data(), buffer.size());
        if (iRead < 0 && errno == EINTR)
            continue;
        if (iRead <= 0)
            return iRead == 0 || errno == EAGAIN;
        const char* pEnd = buffer.data() + iRead;
        for (const char* pNext = buffer.data(); pNext < pEnd;) {
            const auto& event = *reinterpret_cast<const inotify_event*>(pNext);
            take(event, event.len > 0 ? std::string_view(event.name) : std::string_view()); // padded with zeros
            pNext += sizeof(inotify_event) + event.len;
        }
    }
}

} // namespace Platform
