// Searches any bytes as a multipart body and compares the texts that were looked at with those of a plain search,
// which counts the delimiters from the start of the body for each part.

#include "Check.h"
#include "Common/CMessagePart.h"
#include "Common/CTextPieces.h"
#include "Common/Encodings.h"

#include <set>
#include <string>

namespace {

using Texts = std::set<std::string>;

bool Look(void* pContext, CTextPieces& text, Bex::CSimpleString&)
{
    std::string strText;
    for (std::string_view piece; text.Next(piece);)
        strText += piece;
    static_cast<Texts*>(pContext)->insert(strText);
    return false;
}

/// Parts can overlap, so that this takes exponential time: it stops when its budget is used up.
class CPlainSearch
{
public:
    bool Search(const CMessagePart& entity, unsigned nDepth) ///< false: not all was looked at
    {
        if (!entity.Boundary().IsEmpty())
            return nDepth >= CMessagePart::MIME_DEPTH || SearchParts(entity, nDepth);
        if (entity.ContentType().View().starts_with("text/")) {
            const std::string_view body = entity.Body().View();
            if (entity.TransferEncoding().EqualsNoCase("base64"))
                m_texts.emplace(Base64Decode(body).View());
            else if (entity.TransferEncoding().EqualsNoCase("quoted-printable"))
                m_texts.emplace(QuotedPrintableDecode(body).View());
            else
                m_texts.emplace(body);
        }
        return true;
    }
    const Texts& Found() const { return m_texts; }

private:
    using Size = std::ptrdiff_t;

    static Size Find(std::string_view body, std::string_view delimiter, Size nFrom, Size nLength)
    {
        if (nLength <= 0)
            return -1;
        const size_t nFound = body.substr(static_cast<size_t>(nFrom), static_cast<size_t>(nLength)).find(delimiter);
        return nFound == std::string_view::npos ? -1 : nFrom + static_cast<Size>(nFound);
    }
    bool SearchParts(const CMessagePart& entity, unsigned nDepth)
    {
        const std::string_view body = entity.Body().View();
        const std::string strDelimiter = "--" + std::string(entity.Boundary().View());
        const Size nStep = static_cast<Size>(strDelimiter.size()) + 2;
        for (unsigned nPart = 1;; ++nPart) {
            Size nStart = 0;
            Size nRest = static_cast<Size>(body.size());
            for (unsigned i = 0; i < nPart; ++i) {
                const Size nFound = Find(body, strDelimiter, nStart, nRest - 1);
                if (nFound < 0)
                    return true;
                nRest -= nFound + nStep - nStart;
                nStart = nFound + nStep;
            }
            const Size nNext = Find(body, strDelimiter, nStart + 1, nRest - 1);
            if (nNext < 0)
                return true;
            if (--m_iBudget < 0)
                return false;
            const Size nLength = std::max<Size>(nNext - 2 - nStart, 0);
            CMessagePart part;
            if (!part.Parse(body.substr(static_cast<size_t>(nStart), static_cast<size_t>(nLength))))
                return true;
            if (!Search(part, nDepth + 1))
                return false;
        }
    }

    Texts m_texts;
    int m_iBudget = 2000;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pBytes, size_t nSize)
{
    CMessagePart entity;
    if (!entity.Parse({reinterpret_cast<const char*>(pBytes), nSize}))
        return 0;
    Texts texts;
    Bex::CSimpleString strPhrase;
    Check(!CMessagePart::SearchTextParts(entity, Look, &texts, strPhrase));
    CPlainSearch plain;
    if (plain.Search(entity, 0))
        Check(texts == plain.Found());
    return 0;
}
