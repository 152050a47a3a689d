#include "Common/CMailFilter.h"

#include "Bex/TextFunctions.h"

#include <algorithm>
#include <string>

namespace {

constexpr size_t SMALLEST_WINDOW = 65536;

} // namespace

bool CMailFilter::ContentFilterMatch(const CMail& mail, Bex::CSimpleString& strReason)
{
    if (IsEmpty())
        return false; // without a look at the mail
    const TextTest test = [](void* pFilter, std::string_view text, Bex::CSimpleString& strPhrase) {
        return static_cast<CMailFilter*>(pFilter)->TextMatches(text, strPhrase);
    };
    return TextMatches(mail.Subject(), strReason) || CMessagePart::SearchTextParts(mail, test, this, strReason);
}

/// Lowers the text one window at a time, so that a large one is never copied whole. A phrase that begins in a window
/// lies in it.
bool CMailFilter::TextMatches(std::string_view text, Bex::CSimpleString& strReason)
{
    const Bex::CScopedLock lock(LockObject());
    size_t nLongest = 0;
    for (Bex::CSimpleString& strPhrase : *this) {
        strPhrase.ToLower();
        nLongest = std::max<size_t>(nLongest, strPhrase.Length());
    }
    const size_t nWindow = std::max(SMALLEST_WINDOW, nLongest);
    std::string strWindow;
    auto first = end(); // of the list's phrases met so far
    for (size_t nStart = 0; nStart <= text.size() && first != begin(); nStart += nWindow) {
        const std::string_view window = text.substr(nStart, nWindow + nLongest);
        strWindow.resize(window.size());
        std::transform(window.begin(), window.end(), strWindow.begin(), Bex::LowerAscii);
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
