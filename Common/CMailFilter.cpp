#include "Common/CMailFilter.h"

#include "Bex/TextFunctions.h"
#include "Common/CTextPieces.h"

#include <algorithm>
#include <string>

bool CMailFilter::ContentFilterMatch(const CMail& mail, Bex::CSimpleString& strReason)
{
    if (IsEmpty())
        return false; // without a look at the mail
    const TextTest test = [](void* pFilter, CTextPieces& text, Bex::CSimpleString& strPhrase) {
        return static_cast<CMailFilter*>(pFilter)->TextMatches(text, strPhrase);
    };
    CTextPieces subject(mail.Subject());
    return TextMatches(subject, strReason) || CMessagePart::SearchTextParts(mail, test, this, strReason);
}

/// In front of each piece stands as much of the text before it as may belong to a phrase that ends in the piece.
bool CMailFilter::TextMatches(CTextPieces& text, Bex::CSimpleString& strReason)
{
    const Bex::CScopedLock lock(LockObject());
    size_t nLongest = 0;
    for (Bex::CSimpleString& strPhrase : *this) {
        strPhrase.ToLower();
        nLongest = std::max<size_t>(nLongest, strPhrase.Length());
    }
    std::string strWindow;
    auto first = end(); // of the list's phrases met so far
    for (std::string_view piece; first != begin() && text.Next(piece);) {
        strWindow.erase(0, strWindow.size() - std::min(strWindow.size(), nLongest));
        const size_t nBefore = strWindow.size();
        strWindow.resize(nBefore + piece.size());
        std::ranges::transform(piece, strWindow.begin() + static_cast<ptrdiff_t>(nBefore), Bex::LowerAscii);
        auto phrase = begin();
        while (phrase != first && strWindow.find(phrase->View()) == std::string::npos)
            ++phrase;
        first = phrase;
    }
    if (first == end())
        return false;
    strReason = *first;
    return true;
}
