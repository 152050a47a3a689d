#include "Common/CMessagePart.h"

#include "Bex/TextFunctions.h"
#include "Common/HeaderFields.h"
#include "Common/LineEndings.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace {

/// A parameter that is absent, or longer than any that means something, leaves what it had.
void TakeParameter(const Bex::CSimpleString& strValue, std::string_view key, Bex::CSimpleString& strParameter)
{
    std::optional<std::string_view> text = HeaderFields::Parameter(strValue, key);
    if (text && text->size() <= CMessagePart::LONGEST_PARAMETER)
        strParameter = HeaderFields::Unfolded(*text);
}

} // namespace

CMessagePart::CMessagePart() : m_extraHeaderLines(false), m_pBody(std::make_shared<CBody>()) {}

CMessagePart::CMessagePart(const CMessagePart& other) = default;

int CMessagePart::SetHeader(Bex::CSimpleString strName, Bex::CSimpleString strValue)
{
    if (strName.EqualsNoCase("Content-Type")) {
        SetContentType(std::move(strValue));
    } else if (strName.EqualsNoCase("Content-Transfer-Encoding")) {
        m_strTransferEncoding = std::move(strValue);
    } else if (strName.EqualsNoCase("Content-Language")) {
        m_strLanguage = std::move(strValue);
    } else if (strName.EqualsNoCase("Content-Disposition")) {
        SetContentDisposition(std::move(strValue));
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
    std::optional<HeaderFields::SField> field = HeaderFields::Split(line);
    return field ? SetHeader(Bex::CSimpleString(field->name), Bex::CSimpleString(field->value)) : 0;
}

void CMessagePart::SetContentType(Bex::CSimpleString strValue)
{
    m_strContentType = std::move(strValue);
    if (HeaderFields::IsMultipart(m_strContentType)) {
        TakeParameter(m_strContentType, "boundary=", m_strBoundary);
        return;
    }
    TakeParameter(m_strContentType, "name=", m_strName);
    TakeParameter(m_strContentType, "charset=", m_strCharset);
}

void CMessagePart::SetContentDisposition(Bex::CSimpleString strValue)
{
    m_strDisposition = std::move(strValue);
    if (Bex::StartsWithNoCase(m_strDisposition, "attachment"))
        TakeParameter(m_strDisposition, "filename=", m_strFileName);
}

bool CMessagePart::Parse(std::string_view bytes)
{
    std::optional<std::string_view> body = ParseHeaderBlock(bytes);
    if (!body || body->size() > UINT32_MAX)
        return false;
    SetBody(CBody(*body));
    NormalizeLineEndings();
    return true;
}

std::optional<std::string_view> CMessagePart::ParseHeaderBlock(std::string_view bytes)
{
    return HeaderFields::ForEachLine(bytes, [this](std::string_view line) { ParseHeaderLine(line); });
}

void CMessagePart::NormalizeLineEndings()
{
    if (m_pBody.use_count() > 1)
        SetBody(*m_pBody);
    LineEndings::Normalize(*m_pBody);
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

CMessagePart::CBody CMessagePart::TakeBody()
{
    CBody body;
    if (m_pBody.use_count() > 1)
        body = *m_pBody;
    else
        body.Swap(*m_pBody);
    SetBody({});
    return body;
}

void CMessagePart::SetBody(CBody body) { m_pBody = std::make_shared<CBody>(std::move(body)); }
