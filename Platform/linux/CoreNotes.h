#pragma once

#include "Platform/linux/CMemoryMap.h"
#include "Platform/linux/CStoppedThreads.h"
#include "Platform/linux/CrashRecord.h"

#include <string>
#include <vector>

namespace Platform {

/// What a core file tells besides the memory: signal, process, modules and the registers of every thread.
std::string BuildCoreNotes(const SCrashRecord& record, const std::vector<SStoppedThread>& threads,
                           const std::vector<SMapping>& mappings);

} // namespace Platform
