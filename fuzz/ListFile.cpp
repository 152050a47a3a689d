// A list file, and the domain test on what was read from it.
#include "Bex/TextFunctions.h"
#include "Check.h"
#include "Common/Globals.h"
#include "FuzzFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    static const CFuzzFile file;
    file.Write(pData, nSize);
    Bex::CStorableStringList exact(false);
    Check(exact.Load(file.Path()) && LocalDomains().Load(file.Path()));
    Check(LocalDomains().Count() <= exact.Count());
    for (const Bex::CSimpleString& strEntry : exact)
        Check(!strEntry.IsEmpty() && !strEntry.Contains('#') && !strEntry.Contains('\n'));
    for (const Bex::CSimpleString& strEntry : LocalDomains()) {
        Check(Bex::TrimmedView(strEntry) == strEntry.View() && !strEntry.IsEmpty());
        Check(IsLocalAddress("a@" + std::string(strEntry)));
        const Bex::CSimpleString* pFound = nullptr;
        do {
            pFound = LocalDomains().FindDomain(strEntry, pFound);
            Check(pFound != nullptr);
        } while (pFound != &strEntry);
    }
    return 0;
}
