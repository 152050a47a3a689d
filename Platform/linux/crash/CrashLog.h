#pragma once

#include "Platform/linux/crash/CrashRecord.h"

namespace Platform {

/// One line of level "error" in the main log of the crashed process, as that would have written it on the thread.
/// What cannot be written is lost. May wait for a name server.
void WriteCrashLog(const SCrashLog& log, pid_t iThread, const char* pszText);

} // namespace Platform
