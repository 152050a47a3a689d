#pragma once

#include "Platform/CWaitLimit.h"

#include <span>

struct pollfd;

namespace Platform {

enum class EPollEnd { Ready, Stopped, TimedOut, Failed };

/// Waits until one of the descriptors (at most four) is ready; a stop goes before that. Failed: errno.
EPollEnd PollWithin(std::span<pollfd> polled, const CWaitLimit& limit);

} // namespace Platform
