#include "Common/CMailFilter.h"

bool CMailFilter::ContentFilterMatch(const CMail& mail, Bex::CSimpleString& strReason)
{
    const TextTest test = [](void* pFilter, std::string_view text, Bex::CSimpleString& strPhrase) {
        return static_cast<CMailFilter*>(pFilter)->TextMatches(text, strPhrase);
    };
    return TextMatches(mail.Subject(), strReason) || CMessagePart::SearchTextParts(mail, test, this, strReason);
}

bool CMailFilter::TextMatches(std::string_view text, Bex::CSimpleString& strReason)
{
    if (IsEmpty())
        return false; // without a copy of the text
    Bex::CSimpleString strText(text);
    strText.ToLower();
    const Bex::CScopedLock lock(LockObject());
    for (Bex::CSimpleString& strPhrase : *this) {
        strPhrase.ToLower();
        if (strText.View().find(strPhrase) != std::string_view::npos) {
            strReason = strPhrase;
            return true;
        }
    }
    return false;
}
