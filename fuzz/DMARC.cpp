// Takes any text as a published policy record and as the domain of an author.

#include "Check.h"
#include "Tobix/DMARCPolicy.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pBytes, size_t nSize)
{
    const std::string_view text(reinterpret_cast<const char*>(pBytes), nSize);
    Bex::CList<Bex::CSimpleString> texts(false);
    texts.Append(Bex::CSimpleString(text));
    texts.Append(Bex::CSimpleString("v=DMARC1; " + std::string(text)));
    const Bex::CSimpleString strPolicy = FindDMARCPolicy(texts);
    Check(!strPolicy.Contains(';'));
    Check(strPolicy.Length() <= nSize || strPolicy == "none");
    const std::vector<Bex::CSimpleString> names = DMARCNames(Bex::CSimpleString(text));
    Check(names.size() <= 8);
    for (const Bex::CSimpleString& strName : names)
        Check(strName.View().starts_with("_dmarc.") && strName.Length() <= 260);
    return 0;
}
