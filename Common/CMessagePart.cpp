#include "Common/CMessagePart.h"

#include "Bex/Log.h"
#include "Bex/TextFunctions.h"
#include "Common/LineEndings.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace {

constexpr char SOURCE_FILE[] = "Common/MessagePart";

size_t FindNoCase(std::string_view text, std::string_view key)
{
    auto found = std::search(text.begin(), text.end(), key.begin(), key.end(),
                             [](char a, char b) { return Bex::LowerAscii(a) == b; });
    return found == text.end() ? std::string_view::npos : static_cast<size_t>(found - text.begin());
}

/// Finds the key (in lower case) anywhere in a field value and stores the text behind it, up to ";", without folds and
/// quotes.
void ExtractParameter(const Bex::CSimpleString& strValue, std::string_view key, Bex::CSimpleString& strParameter)
{
    size_t nFound = FindNoCase(strValue, key);
    if (nFound == std::string_view::npos)
        return;
    std::string_view rest = strValue.View().substr(nFound + key.size());
    Bex::CSimpleString strText(rest.substr(0, rest.find(';')));
    strText.ReplaceAll("\r\n", "");
    strParameter = Bex::Unquote(strText);
}

} // namespace

CMessagePart::CMessagePart() : m_extraHeaderLines(false), m_pBody(std::make_shared<const CBody>()) {}

CMessagePart::CMessagePart(const CMessagePart& other) = default;

int CMessagePart::SetHeader(Bex::CSimpleString strName, Bex::CSimpleString strValue)
{
    if (strName.EqualsNoCase("Content-Type")) {
        SetContentType(strValue);
    } else if (strName.EqualsNoCase("Content-Transfer-Encoding")) {
        m_strTransferEncoding = std::move(strValue);
    } else if (strName.EqualsNoCase("Content-Language")) {
        m_strLanguage = std::move(strValue);
    } else if (strName.EqualsNoCase("Content-Disposition")) {
        SetContentDisposition(strValue);
    } else if (strName.EqualsNoCase("Content-Description")) {
        m_strDescription = std::move(strValue);
    } else {
        strName.Reserve(strName.Length() + 2 + strValue.Length());
        strName += ": ";
        strName += strValue;
        m_extraHeaderLines.Append(std::move(strName));
    }
    return 1;
}

int CMessagePart::ParseHeaderLine(std::string_view line)
{
    line = line.substr(0, line.find('\0'));
    size_t nColon = line.find(':');
    if (nColon == std::string_view::npos)
        return 0;
    return SetHeader(Bex::CSimpleString(Bex::TrimmedView(line.substr(0, nColon))),
                     Bex::CSimpleString(Bex::TrimmedView(line.substr(nColon + 1))));
}

void CMessagePart::SetContentType(const Bex::CSimpleString& strValue)
{
    m_strContentType = strValue;
    if (FindNoCase(m_strContentType, "multipart") != std::string_view::npos) {
        ExtractParameter(m_strContentType, "boundary=", m_strBoundary);
        return;
    }
    ExtractParameter(m_strContentType, "name=", m_strName);
    ExtractParameter(m_strContentType, "charset=", m_strCharset);
}

void CMessagePart::SetContentDisposition(const Bex::CSimpleString& strValue)
{
    m_strDisposition = strValue;
    if (Bex::StartsWithNoCase(m_strDisposition, "attachment"))
        ExtractParameter(m_strDisposition, "filename=", m_strFileName);
}

bool CMessagePart::Parse(std::string_view bytes)
{
    std::optional<std::string_view> body = ParseHeaderBlock(bytes);
    if (!body || body->size() > UINT32_MAX)
        return false;
    CBody copy;
    copy.SetSize(static_cast<uint32_t>(body->size()));
    std::copy(body->begin(), body->end(), copy.Data());
    SetBody(std::move(copy));
    return NormalizeLineEndings();
}

std::optional<std::string_view> CMessagePart::ParseHeaderBlock(std::string_view bytes)
{
    size_t nField = 0; // where the field that is being assembled begins
    for (size_t nLine = 0;;) {
        size_t nEnd = bytes.find("\r\n", nLine);
        if (nEnd == std::string_view::npos || nEnd + 2 >= bytes.size())
            return std::nullopt;
        if (nEnd == nLine)
            return bytes.substr(nEnd + 2);
        nLine = nEnd + 2;
        if (bytes[nLine] == '\t' || bytes[nLine] == ' ')
            continue;
        ParseHeaderLine(bytes.substr(nField, nEnd - nField));
        nField = nLine;
    }
}

bool CMessagePart::NormalizeLineEndings()
{
    try {
        CBody normalized;
        if (LineEndings::Normalize(m_pBody->View(), normalized))
            SetBody(std::move(normalized));
        return true;
    } catch (const Bex::COutOfMemoryException&) {
        Bex::LogError(Bex::MainLog(), "insufficient memory in %s:%d", SOURCE_FILE, __LINE__);
        return false;
    }
}

Bex::CSimpleString CMessagePart::FindHeaderLine(std::string_view name) const
{
    Bex::CScopedLock lock(m_extraHeaderLines.LockObject());
    for (const Bex::CSimpleString& strLine : m_extraHeaderLines) {
        std::string_view line = strLine.View();
        if (line.substr(0, line.find(':')) == name)
            return strLine;
    }
    return {};
}

void CMessagePart::SetBody(CBody body) { m_pBody = std::make_shared<const CBody>(std::move(body)); }
