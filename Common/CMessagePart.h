#pragma once

#include "Bex/CArray.h"
#include "Bex/CList.h"
#include "Bex/CSimpleString.h"

#include <memory>
#include <optional>
#include <string_view>

class CTextPieces;

/// Asked for each text part of a mail; true ends the search with its phrase.
using TextTest = bool (*)(void* pContext, CTextPieces& text, Bex::CSimpleString& strPhrase);

/// One MIME entity (RFC 2045): what its content headers say, every other header line, and the body as raw bytes.
///
/// Used by one thread at a time. An empty string means that the header is absent. Copies share the body until one
/// of them changes it. After Parse or a message read the body holds no NUL and every line break in it is CR LF.
class CMessagePart
{
public:
    using CBody = Bex::CArray<char>;

    CMessagePart();
    CMessagePart(const CMessagePart& other);
    CMessagePart& operator=(const CMessagePart&) = delete;
    virtual ~CMessagePart() = default;

    /// Applies one header field; always 1. Names ignore ASCII case. Derived classes take theirs and pass the rest on.
    virtual int SetHeader(Bex::CSimpleString strName, Bex::CSimpleString strValue);

    int ParseHeaderLine(std::string_view line); ///< one unfolded line; 0 when it has no colon
    void SetContentType(Bex::CSimpleString strValue);
    void SetContentDisposition(Bex::CSimpleString strValue);
    bool Parse(std::string_view bytes); ///< header block, blank line, body; false when it is not that
    /// Applies the header block at the start of the bytes; gives what stands behind its blank line, or nothing when
    /// there is no blank line with at least one byte behind it.
    std::optional<std::string_view> ParseHeaderBlock(std::string_view bytes);
    void NormalizeLineEndings(); ///< COutOfMemoryException leaves the body unchanged
    /// The first extra header line whose text before the colon is exactly the name; empty when there is none.
    Bex::CSimpleString FindHeaderLine(std::string_view name) const;
    /// Applies the test to the decoded text parts, depth first; at most MIME_DEPTH levels deep.
    static bool SearchTextParts(const CMessagePart& entity, TextTest test, void* pContext,
                                Bex::CSimpleString& strPhrase);
    static constexpr unsigned MIME_DEPTH = 100;
    static constexpr size_t LONGEST_PARAMETER = 65536; ///< a longer one counts as absent

    const Bex::CSimpleString& ContentType() const { return m_strContentType; }
    const Bex::CSimpleString& Boundary() const { return m_strBoundary; }
    const Bex::CSimpleString& Charset() const { return m_strCharset; }
    const Bex::CSimpleString& Name() const { return m_strName; }
    const Bex::CSimpleString& FileName() const { return m_strFileName; }
    const Bex::CSimpleString& TransferEncoding() const { return m_strTransferEncoding; }
    const Bex::CSimpleString& Language() const { return m_strLanguage; }
    const Bex::CSimpleString& Disposition() const { return m_strDisposition; }
    const Bex::CSimpleString& Description() const { return m_strDescription; }
    Bex::CList<Bex::CSimpleString>& ExtraHeaderLines() { return m_extraHeaderLines; }
    const Bex::CList<Bex::CSimpleString>& ExtraHeaderLines() const { return m_extraHeaderLines; }
    const CBody& Body() const { return *m_pBody; }
    void SetBody(CBody body);
    CBody TakeBody(); ///< leaves none; no copy is made unless another entity shares it

private:
    Bex::CSimpleString m_strContentType;
    Bex::CSimpleString m_strBoundary;
    Bex::CSimpleString m_strCharset;
    Bex::CSimpleString m_strName;
    Bex::CSimpleString m_strFileName;
    Bex::CSimpleString m_strTransferEncoding;
    Bex::CSimpleString m_strLanguage;
    Bex::CSimpleString m_strDisposition;
    Bex::CSimpleString m_strDescription;
    Bex::CList<Bex::CSimpleString> m_extraHeaderLines;
    std::shared_ptr<CBody> m_pBody; ///< changed only while nobody shares it
};
