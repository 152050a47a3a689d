#pragma once

#include "Bex/CStorableStringList.h"
#include "Common/CMail.h"

/// The content filters: plain phrases, looked for without regard to ASCII case in the Subject and in every text part.
/// Shared between threads under the list's lock.
class CMailFilter : public Bex::CStorableStringList
{
public:
    CMailFilter() : CStorableStringList(false) {}
    ~CMailFilter() override = default;

    /// True when a phrase occurs; the reason is that phrase in lower case.
    bool ContentFilterMatch(const CMail& mail, Bex::CSimpleString& strReason);

private:
    bool TextMatches(CTextPieces& text, Bex::CSimpleString& strReason);
};
