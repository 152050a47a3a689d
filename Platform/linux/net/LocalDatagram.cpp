#include "Platform/linux/net/LocalDatagram.h"

#include "Platform/linux/base/CDescriptor.h"
#include "Platform/linux/base/GuardedCall.h"

#include <sys/time.h>

namespace Platform {

namespace {

constexpr int MICROS_PER_SECOND = 1'000'000;

} // namespace

int OpenLocalDatagrams(int iLongestWaitMicros)
{
    CDescriptor descriptor(
        GuardedCall({EFault::LocalSocket}, [] { return socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0); }));
    const timeval longest{.tv_sec = iLongestWaitMicros / MICROS_PER_SECOND,
                          .tv_usec = iLongestWaitMicros % MICROS_PER_SECOND};
    const auto limit = [&] { return setsockopt(descriptor.Get(), SOL_SOCKET, SO_SNDTIMEO, &longest, sizeof longest); };
    return GuardedCall({EFault::LocalSocket}, limit) == 0 ? descriptor.Release() : -1;
}

bool SendLocalDatagram(int iDescriptor, const SLocalAddress& address, std::string_view message, bool bWait)
{
    const int iFlags = MSG_NOSIGNAL | (bWait ? 0 : MSG_DONTWAIT);
    const auto send = [&] {
        return sendto(iDescriptor, message.data(), message.size(), iFlags, address.Get(), address.nLength);
    };
    return GuardedCall({EFault::LocalSocket}, send) >= 0;
}

} // namespace Platform
