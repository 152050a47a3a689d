#pragma once

#include <sys/types.h>

namespace Platform {

/// Gives a child the soft limit from before RaiseDescriptorLimit: some programs walk all numbers up to it.
void LowerDescriptorLimit(pid_t iChild);

} // namespace Platform
