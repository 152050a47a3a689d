#include "Bex/Log.h"
#include "Common/CMessagePart.h"
#include "Common/Encodings.h"
#include "Common/LineEndings.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

constexpr char SOURCE_FILE[] = "Common/MessagePart";
constexpr size_t NONE = std::string_view::npos;

/// Finds a multipart's delimiter in linear time, however both are made (Knuth, Morris and Pratt).
class CDelimiterFinder
{
public:
    explicit CDelimiterFinder(std::string_view boundary) : m_strDelimiter("--")
    {
        m_strDelimiter += boundary.substr(0, boundary.find('\0'));
        m_borders.resize(m_strDelimiter.size());
        for (uint32_t i = 1, nMatched = 0; i < m_strDelimiter.size(); ++i)
            m_borders[i] = nMatched = Step(nMatched, m_strDelimiter[i]);
    }
    size_t Length() const { return m_strDelimiter.size(); }

    /// Relative to the start of the text; a NUL ends the text.
    size_t Find(std::string_view text) const
    {
        uint32_t nMatched = 0;
        for (size_t i = 0; i < text.size(); ++i) {
            if (nMatched == 0 && (i = text.find(m_strDelimiter[0], i)) == NONE)
                return NONE;
            nMatched = Step(nMatched, text[i]);
            if (nMatched == m_strDelimiter.size()) {
                size_t nFound = i + 1 - nMatched;
                return text.substr(0, nFound).find('\0') == NONE ? nFound : NONE;
            }
        }
        return NONE;
    }

private:
    uint32_t Step(uint32_t nMatched, char c) const
    {
        while (nMatched > 0 && m_strDelimiter[nMatched] != c)
            nMatched = m_borders[nMatched - 1];
        return m_strDelimiter[nMatched] == c ? nMatched + 1 : 0;
    }

    std::string m_strDelimiter;
    std::vector<uint32_t> m_borders; ///< length of the longest border of each prefix
};

/// Walks over the parts of a multipart body, one delimiter after the other.
///
/// The nth part lies behind the nth delimiter. Finding that one needs only the place (P) and the length of the rest
/// (R) that finding the one before left behind, so nothing is scanned again from the start.
class CPartWalker
{
public:
    CPartWalker(std::string_view body, std::string_view boundary)
        : m_body(body.size() < boundary.size() ? std::string_view() : body),
          m_finder(m_body.empty() ? std::string_view() : boundary)
    {}

    bool Next(std::string_view& part)
    {
        // The last byte of the rest is left out here, and the first below.
        size_t nDelimiter = m_finder.Find(Window(m_nStart, m_body.size() - std::min<size_t>(m_body.size(), 1)));
        if (nDelimiter == NONE)
            return false;
        m_nStart += nDelimiter + m_finder.Length() + 2; // behind the CR LF that ends the delimiter's line
        size_t nNext = m_finder.Find(Window(m_nStart + 1, m_body.size()));
        if (nNext == NONE)
            return false;
        // The CR LF in front of a delimiter belongs to it (RFC 2046 5.1.1). Of a length of -1 nothing remains.
        part = m_body.substr(m_nStart, nNext == 0 ? 0 : nNext - 1);
        return true;
    }

private:
    std::string_view Window(size_t nStart, size_t nEnd) const
    {
        return nStart < nEnd ? m_body.substr(nStart, nEnd - nStart) : std::string_view();
    }

    std::string_view m_body;
    CDelimiterFinder m_finder;
    size_t m_nStart = 0;
};

class CMimeSearch
{
public:
    CMimeSearch(TextTest test, void* pContext, Bex::CSimpleString& strPhrase)
        : m_test(test), m_pContext(pContext), m_strPhrase(strPhrase)
    {}

    bool Search(const CMessagePart& headers, std::string_view body, unsigned nDepth)
    {
        if (headers.Boundary().IsEmpty())
            return SearchText(headers, body);
        return nDepth < CMessagePart::MIME_DEPTH && SearchParts(headers.Boundary(), body, nDepth);
    }

private:
    bool SearchText(const CMessagePart& headers, std::string_view body)
    {
        if (!headers.ContentType().View().starts_with("text/"))
            return false;
        std::string_view text = body.substr(0, body.find('\0'));
        if (headers.TransferEncoding().EqualsNoCase("base64"))
            return m_test(m_pContext, Base64Decode(text), m_strPhrase);
        if (headers.TransferEncoding().EqualsNoCase("quoted-printable"))
            return m_test(m_pContext, QuotedPrintableDecode(text), m_strPhrase);
        return m_test(m_pContext, text, m_strPhrase);
    }

    bool SearchParts(std::string_view boundary, std::string_view body, unsigned nDepth)
    {
        CPartWalker walker(body, boundary);
        std::string_view part;
        std::string_view previousContent;
        Bex::CSimpleString strPreviousBoundary;
        while (walker.Next(part)) {
            CMessagePart headers;
            std::optional<std::string_view> content = headers.ParseHeaderBlock(part);
            if (!content)
                return false;
            // With one delimiter directly behind another two parts overlap and hold the same multipart: without this
            // each level of nesting would double the work.
            bool bSearched = !strPreviousBoundary.IsEmpty() && headers.Boundary() == strPreviousBoundary &&
                             content->data() == previousContent.data() && content->size() == previousContent.size();
            strPreviousBoundary = headers.Boundary();
            previousContent = *content;
            if (bSearched)
                continue;
            Bex::CArray<char> normalized;
            if (headers.Boundary().IsEmpty() && !Normalize(*content, normalized))
                return false;
            if (Search(headers, *content, nDepth + 1))
                return true;
        }
        return false;
    }

    /// A part cut out between CR and LF ends with a bare CR. The view then moves to the normalized bytes. A multipart's
    /// parts are the same with or without that LF, and a copy at each level of nesting would add up.
    static bool Normalize(std::string_view& content, Bex::CArray<char>& normalized)
    {
        try {
            if (LineEndings::Normalize(content, normalized))
                content = normalized.View();
            return true;
        } catch (const Bex::COutOfMemoryException&) {
            Bex::LogError(Bex::MainLog(), "insufficient memory in %s:%d", SOURCE_FILE, __LINE__);
            return false;
        }
    }

    TextTest m_test;
    void* m_pContext;
    Bex::CSimpleString& m_strPhrase;
};

} // namespace

bool CMessagePart::SearchTextParts(const CMessagePart& entity, TextTest test, void* pContext,
                                   Bex::CSimpleString& strPhrase)
{
    return CMimeSearch(test, pContext, strPhrase).Search(entity, entity.Body().View(), 0);
}
