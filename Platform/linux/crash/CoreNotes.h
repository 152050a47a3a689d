#pragma once

#include "Platform/linux/crash/CMemoryMap.h"
#include "Platform/linux/crash/CStoppedThreads.h"
#include "Platform/linux/crash/CrashRecord.h"

#include <string>
#include <vector>

namespace Platform {

/// What a core file tells besides the memory: signal, process, modules and the registers of every thread.
std::string BuildCoreNotes(const SCrashRecord& record, const std::vector<SStoppedThread>& threads,
                           const std::vector<SMapping>& mappings);

} // namespace Platform
