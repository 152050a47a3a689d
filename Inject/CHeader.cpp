#include "Inject/CHeader.h"

#include "Bex/TextFunctions.h"
#include "Common/CMessage.h"
#include "Common/EnvelopeFields.h"
#include "Inject/AddressList.h"
#include "Inject/CRefusal.h"

#include <algorithm>

namespace {

// What this program and the daemon add must find room, too, all the recipients but not among it.
constexpr uint64_t MOST_BYTES = CMessage::MAX_HEADER_BYTES / 4;
constexpr uint32_t MOST_LINES = CMessage::MAX_HEADER_LINES - 1000;
constexpr std::string_view FOLD = " \t";

/// The name of the field that begins with this line (RFC 5322 2.2); empty when none does.
std::string_view FieldName(std::string_view line)
{
    std::string_view name = line.substr(0, line.find(':'));
    if (name.size() == line.size())
        return {};
    name = name.substr(0, name.find_last_not_of(FOLD) + 1);
    return std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < '\x7f'; }) ? name : "";
}

/// Without its end; a CR within it would be taken for an end by others.
void Clean(std::string& strLine)
{
    strLine.resize(strLine.find_last_not_of("\r\n") + 1);
    if (strLine.find('\0') != std::string::npos)
        throw CRefusal(EExit::BadData, "there is a NUL character in the mail's header");
    std::replace(strLine.begin(), strLine.end(), '\r', ' ');
}

constexpr std::string_view HIDDEN[] = {"Bcc", "Resent-Bcc"};
constexpr std::string_view RECIPIENTS[] = {"To", "Cc", "Bcc"};
constexpr std::string_view RESENT_RECIPIENTS[] = {"Resent-To", "Resent-Cc", "Resent-Bcc"};

} // namespace

CHeader::CHeader(CInput& input)
{
    uint64_t nBytes = 0;
    uint32_t nLines = 0;
    std::string strLine;
    for (std::string_view piece; input.Next(piece);) {
        strLine += piece;
        nBytes += piece.size();
        if (nBytes > MOST_BYTES || nLines > MOST_LINES)
            throw CRefusal(EExit::BadData, "the mail's header is too big");
        if (!piece.ends_with('\n'))
            continue;
        ++nLines;
        if (!TakeLine(strLine))
            return;
        strLine.clear();
    }
    if (nBytes == 0)
        throw CRefusal(EExit::BadData, "there is no mail on standard input");
    if (!strLine.empty())
        TakeLine(strLine);
}

/// False at the end of the header block.
bool CHeader::TakeLine(const std::string& strLine)
{
    std::string strText = strLine;
    strText.resize(strText.find_last_not_of("\r\n") + 1);
    if (strText.empty())
        return false;
    const bool bFold = FOLD.find(strText.front()) != FOLD.npos;
    const std::string_view name = FieldName(strText);
    if (m_fields.empty() && (strText.starts_with("From ") || strText.starts_with(">From ")))
        return true; // of a file with many mails
    if (bFold ? m_fields.empty() : name.empty()) {
        m_strBodyStart = strLine;
        return false;
    }
    if (!bFold)
        m_fields.push_back({std::string(name), {}});
    Clean(strText);
    (m_fields.back().strText += strText) += "\r\n";
    return true;
}

bool CHeader::Has(std::string_view name) const
{
    return std::any_of(m_fields.begin(), m_fields.end(),
                       [&](const SField& field) { return Bex::EqualNoCase(field.strName, name); });
}

bool CHeader::IsAnyResent() const
{
    return std::any_of(m_fields.begin(), m_fields.end(),
                       [](const SField& field) { return Bex::StartsWithNoCase(field.strName, "Resent-"); });
}

std::vector<std::string> CHeader::Recipients() const
{
    const std::span<const std::string_view> wanted = IsAnyResent() ? RESENT_RECIPIENTS : RECIPIENTS;
    std::vector<std::string> recipients;
    for (const SField& field : m_fields) {
        if (!EnvelopeFields::IsOneOf(field.strName, wanted))
            continue;
        for (std::string& strAddress : AddressList(std::string_view(field.strText).substr(field.strText.find(':') + 1)))
            recipients.push_back(std::move(strAddress));
    }
    return recipients;
}

std::string CHeader::Text() const
{
    std::string strText;
    for (const SField& field : m_fields) {
        if (!EnvelopeFields::IsForbidden(field.strName) && !EnvelopeFields::IsOneOf(field.strName, HIDDEN))
            strText += field.strText;
    }
    return strText;
}
