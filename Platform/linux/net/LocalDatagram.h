#pragma once

#include "Platform/linux/net/LocalAddress.h"

#include <string_view>

namespace Platform {

/// What the system's services hear from a program: single messages to the local socket of one of them, which may be
/// stuck. Only a send that is told to wait does so, and no longer than this. Any thread.
/// Answers the descriptor, which the caller owns; -1: errno.
int OpenLocalDatagrams(int iLongestWaitMicros);

/// False: errno, EAGAIN where the service has too many messages that it has not read yet.
bool SendLocalDatagram(int iDescriptor, const SLocalAddress& address, std::string_view message, bool bWait);

} // namespace Platform
