// Takes any text as one host of a smart host table's value.

#include "Check.h"
#include "Common/SmartHostEntry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pBytes, size_t nSize)
{
    const std::string_view text(reinterpret_cast<const char*>(pBytes), nSize);
    const SSmartHostEntry entry = ParseSmartHostEntry(text);
    Check(entry.strHost.Length() + entry.strUser.Length() + entry.strPassword.Length() <= nSize);
    Check(!entry.strHost.Contains('@') && !entry.strUser.Contains(':'));
    Check(entry.strHost.IsEmpty() || text.find(entry.strHost.View()) != std::string_view::npos);
    Check(text.find('@') != std::string_view::npos || (entry.strUser.IsEmpty() && entry.strPassword.IsEmpty()));
    Check(static_cast<uint32_t>(entry.mode) <= static_cast<uint32_t>(ETLSMode::Direct));
    return 0;
}
