// A list file, and the domain test on what was read from it.
#include "Bex/TextFunctions.h"
#include "Common/Globals.h"
#include "FuzzFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    static const CFuzzFile file;
    file.Write(pData, nSize);
    Bex::CStorableStringList exact(false);
    Require(exact.Load(file.Path()) && LocalDomains().Load(file.Path()));
    Require(LocalDomains().Count() <= exact.Count());
    for (const Bex::CSimpleString& strEntry : exact)
        Require(!strEntry.IsEmpty() && !strEntry.Contains('#') && !strEntry.Contains('\n'));
    for (const Bex::CSimpleString& strEntry : LocalDomains()) {
        Require(Bex::TrimmedView(strEntry) == strEntry.View() && !strEntry.IsEmpty());
        Require(IsLocalAddress("a@" + std::string(strEntry)));
        const Bex::CSimpleString* pFound = nullptr;
        do {
            pFound = LocalDomains().FindDomain(strEntry, pFound);
            Require(pFound != nullptr);
        } while (pFound != &strEntry);
    }
    return 0;
}
