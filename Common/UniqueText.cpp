#include "Common/UniqueText.h"

#include "Platform/Clock.h"
#include "Platform/Process.h"

std::string UniqueText()
{
    static unsigned nCount = 0;
    static const uint64_t ui64Start = Platform::TickCount();
    return std::to_string(Platform::NowSeconds()) + "x" + std::to_string(Platform::CurrentProcessId()) + "x" +
           std::to_string(ui64Start) + "x" + std::to_string(nCount++);
}
