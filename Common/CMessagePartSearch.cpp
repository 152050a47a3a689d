#include "Common/CMessagePart.h"

#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/Encodings.h"
#include "Common/HeaderFields.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace {

constexpr size_t NONE = std::string_view::npos;

/// What the search has to know of an entity's header: views into the mail.
struct SContent
{
    std::string_view type;
    std::string_view boundary; ///< folds are kept
    std::string_view transferEncoding;

    void Take(std::string_view line)
    {
        std::optional<HeaderFields::SField> field = HeaderFields::Split(line);
        if (!field)
            return;
        if (Bex::EqualNoCase(field->name, "Content-Transfer-Encoding"))
            transferEncoding = field->value;
        if (!Bex::EqualNoCase(field->name, "Content-Type"))
            return;
        type = field->value;
        if (HeaderFields::IsMultipart(type))
            boundary = HeaderFields::Parameter(type, "boundary=").value_or(boundary);
    }
};

/// Walks over the parts of a multipart body, one delimiter after the other; every byte is looked at once.
class CPartWalker
{
public:
    CPartWalker(std::string_view body, std::string_view boundary)
        : m_body(body), m_strDelimiter("--" + HeaderFields::Unfolded(boundary)), m_nDelimiter(FindDelimiter(0))
    {}

    /// Not to be called again once it was false.
    bool Next(std::string_view& part)
    {
        if (m_body.substr(m_nStart).starts_with(m_strDelimiter)) // one directly behind another ends no part
            m_nDelimiter = m_nStart;
        if (m_nDelimiter == NONE || m_nDelimiter + m_strDelimiter.size() >= m_body.size())
            return false;
        m_nStart = m_nDelimiter + m_strDelimiter.size() + 2; // behind the CR LF that ends the delimiter's line
        m_nDelimiter = FindDelimiter(m_nStart + 1);
        if (m_nDelimiter == NONE)
            return false;
        // The CR LF in front of a delimiter belongs to it (RFC 2046 5.1.1). Of a length of -1 nothing remains.
        size_t nLength = std::max(m_nDelimiter, m_nStart + 2) - (m_nStart + 2);
        part = m_body.substr(m_nStart, nLength);
        if (part.ends_with('\r')) // cut between CR and LF: the line break is made whole again
            part = m_body.substr(m_nStart, nLength + 1);
        return true;
    }

private:
    size_t FindDelimiter(size_t nStart) const
    {
        if (nStart >= m_body.size())
            return NONE;
        const void* pFound =
            memmem(m_body.data() + nStart, m_body.size() - nStart, m_strDelimiter.data(), m_strDelimiter.size());
        return pFound == nullptr ? NONE : static_cast<size_t>(static_cast<const char*>(pFound) - m_body.data());
    }

    std::string_view m_body;
    std::string m_strDelimiter;
    size_t m_nStart = 0; ///< of the part, once there is one
    size_t m_nDelimiter; ///< the one behind it
};

class CMimeSearch
{
public:
    CMimeSearch(TextTest test, void* pContext, Bex::CSimpleString& strPhrase)
        : m_test(test), m_pContext(pContext), m_strPhrase(strPhrase)
    {}

    bool Search(const SContent& content, std::string_view body, unsigned nDepth)
    {
        if (content.boundary.empty())
            return SearchText(content, body);
        m_bTooDeep = m_bTooDeep || nDepth >= CMessagePart::MIME_DEPTH;
        return nDepth < CMessagePart::MIME_DEPTH && SearchParts(content.boundary, body, nDepth);
    }
    bool IsTooDeep() const { return m_bTooDeep; } ///< something was not searched

private:
    bool SearchText(const SContent& content, std::string_view text)
    {
        if (!content.type.starts_with("text/"))
            return false;
        if (Bex::EqualNoCase(content.transferEncoding, "base64"))
            return m_test(m_pContext, Base64Decode(text).View(), m_strPhrase);
        if (Bex::EqualNoCase(content.transferEncoding, "quoted-printable"))
            return m_test(m_pContext, QuotedPrintableDecode(text).View(), m_strPhrase);
        return m_test(m_pContext, text, m_strPhrase);
    }

    bool SearchParts(std::string_view boundary, std::string_view body, unsigned nDepth)
    {
        CPartWalker walker(body, boundary);
        std::string_view part;
        std::string_view previousBody;
        std::string_view previousBoundary;
        while (walker.Next(part)) {
            SContent content;
            std::optional<std::string_view> partBody =
                HeaderFields::ForEachLine(part, [&content](std::string_view line) { content.Take(line); });
            if (!partBody)
                return false;
            // With one delimiter directly behind another two parts overlap and hold the same multipart: without this
            // each level of nesting would double the work.
            bool bSearched = !previousBoundary.empty() && content.boundary == previousBoundary &&
                             partBody->data() == previousBody.data() && partBody->size() == previousBody.size();
            previousBoundary = content.boundary;
            previousBody = *partBody;
            if (!bSearched && Search(content, *partBody, nDepth + 1))
                return true;
        }
        return false;
    }

    TextTest m_test;
    void* m_pContext;
    Bex::CSimpleString& m_strPhrase;
    bool m_bTooDeep = false;
};

} // namespace

bool CMessagePart::SearchTextParts(const CMessagePart& entity, TextTest test, void* pContext,
                                   Bex::CSimpleString& strPhrase)
{
    const SContent content{entity.ContentType(), entity.Boundary(), entity.TransferEncoding()};
    CMimeSearch search(test, pContext, strPhrase);
    const bool bFound = search.Search(content, entity.Body().View(), 0);
    if (search.IsTooDeep())
        Bex::LogWarning(Bex::MainLog(), "the parts of a mail that are nested deeper than %u levels are not searched",
                        MIME_DEPTH);
    return bFound;
}
