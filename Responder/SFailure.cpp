#include "Responder/SFailure.h"

#include "Bex/TextFunctions.h"
#include "Common/MailText.h"
#include "Common/ReportText.h"

#include <algorithm>
#include <cctype>
#include <optional>

namespace {

constexpr char PERMANENT[] = "5.0.0";
constexpr char TIME_EXPIRED[] = "4.4.7";
constexpr char NO_MAIL_DOMAIN[] = "5.1.10"; // RFC 7505 4.1
constexpr size_t LONGEST_FIELD = 900;

bool IsDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

/// "5.1.1" at the beginning of the text, or nothing (RFC 3463 2).
std::string_view EnhancedCode(std::string_view text)
{
    size_t nEnd = 0;
    for (int nPart = 0; nPart < 3; ++nPart) {
        const size_t nStart = nEnd;
        while (nEnd < text.size() && IsDigit(text[nEnd]))
            ++nEnd;
        if (nEnd == nStart || nEnd - nStart > 3)
            return {};
        if (nPart < 2 && (nEnd == text.size() || text[nEnd++] != '.'))
            return {};
    }
    const bool bComplete = nEnd == text.size() || text[nEnd] == ' ';
    return bComplete && (text.starts_with("4.") || text.starts_with("5.")) ? text.substr(0, nEnd) : std::string_view();
}

/// What stands between the two, if the line begins and ends with them.
std::optional<std::string_view> Between(std::string_view line, std::string_view begin, std::string_view end)
{
    if (line.size() < begin.size() + end.size() || !line.starts_with(begin) || !line.ends_with(end))
        return std::nullopt;
    return line.substr(begin.size(), line.size() - begin.size() - end.size());
}

/// Reads a report line by line.
class CReportReader
{
public:
    void Take(std::string_view line)
    {
        if (line == ReportText::PERMANENT_ERRORS || line == ReportText::CONTINUOUS_ERRORS) {
            m_bContinuous = line == ReportText::CONTINUOUS_ERRORS;
            m_bRecipientNext = true;
        } else if (m_bRecipientNext) {
            m_failure.strRecipient = line;
            m_bRecipientNext = false;
        } else if (const auto reason = Between(line, ReportText::REASON, ReportText::REASON_END)) {
            m_strReason = *reason;
        } else if (line == ReportText::TRANSCRIPT) {
            m_bTranscript = true;
        } else if (const auto host = Between(line, ReportText::TALKING_TO, ReportText::TALKING_TO_END)) {
            m_failure.strRemoteHost = *host;
        } else if (m_bTranscript) {
            TakeTranscript(line);
        }
    }
    SFailure Result()
    {
        m_failure.strStatus = Status();
        m_failure.strDiagnosticType = m_strReply.empty() ? "x-transport" : "smtp";
        m_failure.strDiagnostic = !m_strReply.empty() ? m_strReply : !m_strReason.empty() ? m_strReason : m_strMessage;
        return m_failure;
    }

private:
    void TakeTranscript(std::string_view line)
    {
        const bool bReply = line.starts_with(ReportText::REPLY);
        if (bReply)
            line.remove_prefix(std::string_view(ReportText::REPLY).size());
        if (bReply && line.size() > 2 && (line[0] == '4' || line[0] == '5')) {
            if (!m_bInReply || m_strReply.substr(0, 3) != line.substr(0, 3))
                m_strReply.clear();
            else
                m_strReply += ' ';
            m_strReply += line;
            m_bInReply = true;
            return;
        }
        m_bInReply = false;
        if (!line.empty() && !bReply && !line.starts_with(ReportText::COMMAND))
            m_strMessage = line;
    }
    std::string Status() const
    {
        if (m_strReply.size() > 4 && !EnhancedCode(std::string_view(m_strReply).substr(4)).empty())
            return std::string(EnhancedCode(std::string_view(m_strReply).substr(4)));
        if (m_strMessage.ends_with(ReportText::NULL_MX))
            return NO_MAIL_DOMAIN;
        return m_bContinuous || m_strReply.starts_with('4') || !m_strReason.empty() ? TIME_EXPIRED : PERMANENT;
    }

    SFailure m_failure;
    std::string m_strReason;
    std::string m_strReply; ///< the last one that refused, its lines joined
    std::string m_strMessage;
    bool m_bContinuous = false;
    bool m_bRecipientNext = false;
    bool m_bTranscript = false;
    bool m_bInReply = false;
};

/// A field of the status part, which holds nothing but ASCII.
std::string Field(std::string_view name, std::string_view type, std::string_view value)
{
    if (value.empty())
        return {};
    std::string strValue = OneLine(value, LONGEST_FIELD);
    std::replace_if(
        strValue.begin(), strValue.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; }, '?');
    return std::string(name).append(": ").append(type).append("; ").append(strValue).append("\r\n");
}

} // namespace

SFailure SFailure::FromReport(std::string_view text)
{
    CReportReader reader;
    while (!text.empty())
        reader.Take(Bex::TakeLine(text));
    return reader.Result();
}

std::string SFailure::StatusText(std::string_view reportingHost) const
{
    return Field("Reporting-MTA", "dns", reportingHost) + "\r\n" +
           Field("Final-Recipient", "rfc822", strRecipient.empty() ? "unknown" : strRecipient) +
           "Action: failed\r\nStatus: " + strStatus + "\r\n" + Field("Remote-MTA", "dns", strRemoteHost) +
           Field("Diagnostic-Code", strDiagnosticType, strDiagnostic);
}
