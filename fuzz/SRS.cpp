// Rewrites any sender, and what comes out of that again.

#include "Tobix/SRS.h"
#include "Check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pBytes, size_t nSize)
{
    const std::string_view input(reinterpret_cast<const char*>(pBytes), nSize);
    const size_t nSplit = input.find('\n');
    const Bex::CSimpleString strAddress(input.substr(0, nSplit));
    const Bex::CSimpleString strChallenge(nSplit < nSize ? input.substr(nSplit + 1) : std::string_view());
    const Bex::CSimpleString strOnce = SRSRewrite(strAddress, "srs.example", strChallenge);
    Check(strOnce.IsEmpty() == strAddress.IsEmpty());
    if (strAddress.IsEmpty())
        return 0;
    Check(strOnce.View().starts_with("SRS") && strOnce.View().ends_with("@srs.example"));
    Check(strOnce.Length() <= strAddress.Length() + 30);
    const Bex::CSimpleString strTwice = SRSRewrite(strOnce, "two.example", strChallenge);
    Check(strTwice.View().starts_with("SRS1") && strTwice.View().ends_with("@two.example"));
    if (strAddress.LocalPart() == strAddress.BeforeFirst('@')) // with one "@" at most it grows no further
        Check(SRSRewrite(strTwice, "two.example", strChallenge) == strTwice);
    return 0;
}
