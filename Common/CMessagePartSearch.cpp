#include "Common/CMessagePart.h"

#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/CTextPieces.h"
#include "Common/HeaderFields.h"

#include <algorithm>
#include <string>
#include <vector>

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
        if (!HeaderFields::IsMultipart(type))
            return;
        const std::string_view given = HeaderFields::Parameter(type, "boundary=").value_or(boundary);
        if (given.size() <= CMessagePart::LONGEST_PARAMETER)
            boundary = given;
    }
};

/// What the search for delimiters may still cost: on each level of nesting the same bytes are looked at again.
class CSearchBudget
{
public:
    explicit CSearchBudget(size_t nBody) : m_nLeft(ALWAYS_POSSIBLE + FULL_LEVELS * nBody) {}
    std::string_view Granted(std::string_view text) const { return text.substr(0, m_nLeft); }
    void Spend(size_t nBytes) { m_nLeft -= std::min(m_nLeft, nBytes); }
    bool IsSpent() const { return m_nLeft == 0; }

private:
    static constexpr size_t ALWAYS_POSSIBLE = 64u << 20;
    static constexpr size_t FULL_LEVELS = 8; ///< that may hold nearly all of a large mail

    size_t m_nLeft;
};

/// Finds a delimiter in a time that goes with the text's length, however often the text nearly matches.
class CDelimiter
{
public:
    explicit CDelimiter(std::string_view boundary)
        : m_strText("--" + HeaderFields::Unfolded(boundary)), m_overlaps(m_strText.size())
    {
        for (size_t i = 1; i < m_strText.size(); ++i)
            m_overlaps[i] = Longer(m_overlaps[i - 1], m_strText[i]);
    }
    const std::string& Text() const { return m_strText; }
    size_t Find(std::string_view text) const
    {
        uint32_t nMatched = 0;
        for (size_t i = 0; i < text.size(); ++i) {
            if (nMatched == 0)
                i = std::min(text.find(m_strText.front(), i), text.size() - 1);
            if (nMatched = Longer(nMatched, text[i]); nMatched == m_strText.size())
                return i + 1 - nMatched;
        }
        return NONE;
    }

private:
    /// How much of the delimiter is matched when one more character follows what was matched (less than all of it).
    uint32_t Longer(uint32_t nMatched, char c) const
    {
        while (nMatched > 0 && m_strText[nMatched] != c)
            nMatched = m_overlaps[nMatched - 1];
        return m_strText[nMatched] == c ? nMatched + 1 : 0;
    }

    std::string m_strText;
    std::vector<uint32_t> m_overlaps; ///< by the last matched character: how much of the beginning ends there, too
};

/// Walks over the parts of a multipart body, one delimiter after the other; every byte is looked at once.
class CPartWalker
{
public:
    CPartWalker(std::string_view body, std::string_view boundary, CSearchBudget& budget)
        : m_body(body), m_delimiter(boundary), m_budget(budget), m_nDelimiter(FindDelimiter(0))
    {}

    /// Not to be called again once it was false.
    bool Next(std::string_view& part)
    {
        if (m_body.substr(m_nStart).starts_with(m_delimiter.Text())) // one directly behind another ends no part
            m_nDelimiter = m_nStart;
        if (m_nDelimiter == NONE || m_nDelimiter + m_delimiter.Text().size() >= m_body.size())
            return false;
        m_nStart = m_nDelimiter + m_delimiter.Text().size() + 2; // behind the CR LF that ends the delimiter's line
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
    size_t FindDelimiter(size_t nStart)
    {
        if (nStart >= m_body.size())
            return NONE;
        const std::string_view text = m_budget.Granted(m_body.substr(nStart));
        const size_t nFound = m_delimiter.Find(text);
        m_budget.Spend(std::min(nFound, text.size()));
        return nFound == NONE ? NONE : nStart + nFound;
    }

    std::string_view m_body;
    CDelimiter m_delimiter;
    CSearchBudget& m_budget;
    size_t m_nStart = 0; ///< of the part, once there is one
    size_t m_nDelimiter; ///< the one behind it
};

class CMimeSearch
{
public:
    CMimeSearch(TextTest test, void* pContext, Bex::CSimpleString& strPhrase, size_t nBody)
        : m_test(test), m_pContext(pContext), m_strPhrase(strPhrase), m_budget(nBody)
    {}

    bool Search(const SContent& content, std::string_view body, unsigned nDepth)
    {
        if (content.boundary.empty())
            return SearchText(content, body);
        m_bTooDeep = m_bTooDeep || nDepth >= CMessagePart::MIME_DEPTH;
        return nDepth < CMessagePart::MIME_DEPTH && SearchParts(content.boundary, body, nDepth);
    }
    bool IsTooDeep() const { return m_bTooDeep; } ///< something was not searched
    bool IsTooMuch() const { return m_budget.IsSpent(); }

private:
    bool SearchText(const SContent& content, std::string_view text)
    {
        if (!content.type.starts_with("text/"))
            return false;
        CTextPieces pieces(text, content.transferEncoding);
        return m_test(m_pContext, pieces, m_strPhrase);
    }

    bool SearchParts(std::string_view boundary, std::string_view body, unsigned nDepth)
    {
        CPartWalker walker(body, boundary, m_budget);
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
    CSearchBudget m_budget;
    bool m_bTooDeep = false;
};

} // namespace

bool CMessagePart::SearchTextParts(const CMessagePart& entity, TextTest test, void* pContext,
                                   Bex::CSimpleString& strPhrase)
{
    const SContent content{entity.ContentType(), entity.Boundary(), entity.TransferEncoding()};
    CMimeSearch search(test, pContext, strPhrase, entity.Body().Size());
    const bool bFound = search.Search(content, entity.Body().View(), 0);
    if (search.IsTooDeep())
        Bex::LogWarning(Bex::MainLog(), "the parts of a mail that are nested deeper than %u levels are not searched",
                        MIME_DEPTH);
    if (search.IsTooMuch())
        Bex::LogWarning(Bex::MainLog(), "the parts of a large mail that are nested too often are not searched");
    return bFound;
}
